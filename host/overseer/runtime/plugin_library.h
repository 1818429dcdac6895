#pragma once

#include <nv/driver_host.h>
#include <nv/driver_operations.h>
#include <nv/plugin.h>

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>
#include <vector>

#include "common/result.h"

namespace overseer {

/// A loaded plug-in library. It stays mapped as long as an owner of it, or a driver made from it,
/// lives.
class PluginLibrary : public std::enable_shared_from_this<PluginLibrary> {
  public:
    /// Makes a driver die before the library that its code is in.
    struct DriverDeleter {
        std::shared_ptr<PluginLibrary> library;
        void operator()(IHostedDriver* driver) const;
    };
    using Driver = std::unique_ptr<IHostedDriver, DriverDeleter>;

    /// Loads a library and looks its two exports up; the message of a failure names the file.
    static Result<std::shared_ptr<PluginLibrary>> load(const boost::filesystem::path& file);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    const boost::filesystem::path& file() const { return file_; }
    /// Names of the agents in it.
    const std::vector<std::string>& names() const { return names_; }
    /// Makes a driver. What its constructor throws is a failure, and so is a null result.
    /// @param context  a CreationContext that outlives the driver
    Result<Driver> create(CreationContext& context);

  private:
    PluginLibrary(boost::filesystem::path file, void* handle);
    Result<> readExports();

    boost::filesystem::path file_;
    void* handle_;
    std::vector<std::string> names_;
    nv::plugin::CreationFunc creationFunc_ = nullptr;
};

}  // namespace overseer
