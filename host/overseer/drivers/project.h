#pragma once

#include <nv/overseer.h>
#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/result.h"

namespace pugi {
class xml_document;
}

namespace overseer {

/// A device of the project, or a packaged agent, by its driver file.
struct ProjectEntry {
    std::uint32_t id = 0;  ///< never 0, never given again
    std::string name;
    std::string file;
    std::string library;  ///< of an agent that is loaded: its plug-in, a file of the unpacked copy
};

/// The controller's project: an XML file that a person can read and write, whose comments stay.
/// I/O thread only.
class Project : public IProject, public IDeviceRegistry {
  public:
    /// Fails with file, line and column where the file cannot be understood; it is never changed
    /// then.
    static Result<Project> load(const boost::filesystem::path& file);
    Project(Project&&) noexcept;
    Project& operator=(Project&&) noexcept;
    ~Project() override;

    const std::vector<ProjectEntry>& devices() const { return devices_; }
    const std::vector<ProjectEntry>& agents() const { return agents_; }
    /// The ids that the host keeps under a driver's file name, agents' included, ascending.
    std::vector<std::uint32_t> deviceIds(const std::string& file) const;

    /// Adds a device; what is added is on the disk once `save` has succeeded.
    std::uint32_t addDevice(const std::string& file, const std::string& name);
    /// Adds a packaged agent, or notes another name and library of one that is there. A device of
    /// that file becomes the agent and keeps its id.
    std::uint32_t addAgent(const std::string& file, const std::string& name,
                           const std::string& library);
    /// The same project once more, for changes that are kept only once they are on the disk.
    Project clone() const;
    /// Replaces the file by what the object holds now.
    Result<> save() const;

    void AddDriverFileNames(std::set<std::string>& names) const override;
    void AddAgentFileNames(std::set<std::string>& names) const override;
    std::vector<std::uint32_t> GetDeviceIds(const std::string& fileName) const override {
        return deviceIds(fileName);
    }

  private:
    Project(boost::filesystem::path file, std::unique_ptr<pugi::xml_document> document);
    Result<> read(const std::string& text);
    bool isTaken(std::uint32_t id) const;
    std::uint32_t nextId();

    boost::filesystem::path file_;
    std::unique_ptr<pugi::xml_document> document_;
    std::vector<ProjectEntry> devices_;
    std::vector<ProjectEntry> agents_;
};

}  // namespace overseer
