#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "common/result.h"
#include "root/controller_root.h"
#include "state/driver_ledger.h"

namespace overseer {

/// The driver files that were applied last and before that, kept as second names of them in
/// state/applied/ and state/previous/ so that they take no room of their own while in use.
class AppliedPackages {
  public:
    /// @param root  must outlive the object
    explicit AppliedPackages(const ControllerRoot& root) : root_(root) {}

    /// Keeps the file that was just applied; one of a different MD5 that it displaces becomes the
    /// previous one. Notes both MD5s in `record`, which the caller stores.
    Result<> keep(const boost::filesystem::path& file, const std::string& md5,
                  DriverRecord& record) const;

    /// Which kept file is to be put back: the last applied one where the file in place was never
    /// applied (`md5InPlace` is not its MD5), else the previous one. Fails when there is none, or
    /// when its content is no longer what was kept, as happens when somebody writes into a driver
    /// file instead of replacing it.
    Result<boost::filesystem::path> toRestore(const DriverRecord& record,
                                              const std::string& md5InPlace) const;

  private:
    boost::filesystem::path applied(const std::string& name) const;
    boost::filesystem::path previous(const std::string& name) const;
    Result<> displace(const boost::filesystem::path& file, DriverRecord& record) const;

    const ControllerRoot& root_;
};

/// MD5 of a file, lower-case hexadecimal.
Result<std::string> md5Of(const boost::filesystem::path& file);

}  // namespace overseer
