#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <string>

#include "common/result.h"
#include "drivers/applied_packages.h"
#include "drivers/file_stamp.h"
#include "drivers/manifest.h"
#include "drivers/package.h"
#include "root/controller_root.h"
#include "state/driver_ledger.h"

namespace overseer {

/// Why a driver file is applied.
enum class Occasion {
    kUpdate,   ///< a driver asked for it
    kAdd,      ///< a driver adds an agent
    kInstall,  ///< a person put the file in place
    kRestore,  ///< a kept file was put back
    kStart,    ///< the host starts, and nobody asked: a higher unpacked copy is left alone
};

/// What was applied.
struct AppliedDriver {
    int version = 0;
    std::string name;     ///< as the manifest calls it, else the file's stem
    bool agent = false;   ///< the manifest marks the package as an agent's
    std::string library;  ///< the plug-in that it brings, a file of its unpacked copy; mostly empty
};

/// What applying a driver of that manifest comes to.
/// @param package  which brought the manifest, null for a bare driver
AppliedDriver describeDriver(const std::string& fileName, const Manifest& manifest,
                             const Package* package);

/// Makes a driver file as it now lies in its folder the one in use: the only way in which a version
/// comes to be the installed one.
///
/// For a package the unpacked copy is made whole first; then its checksum file is written, the file
/// is kept for restoring, and its version recorded. When any of it cannot be, the checksum file
/// goes away, the record stays as it was, and the answer is why. What was unpacked of a package
/// that an update or an add refuses goes too. I/O thread only.
class DriverApplication {
  public:
    /// Both must outlive the object.
    DriverApplication(const ControllerRoot& root, DriverLedger& ledger);

    /// Blocks while it unpacks. The caller logs a failure. The first update or add after
    /// nv::file::replace failed for that name fails; where the host is stopping, nothing is
    /// unpacked.
    Result<AppliedDriver> apply(const std::string& fileName, Occasion occasion);

    /// Brings to the disk what was applied since the last call, in one go: for when a run is over.
    Result<> flushFolders();

  private:
    Result<AppliedDriver> attempt(const std::string& fileName, Occasion occasion,
                                  DriverRecord& record);
    Result<AppliedDriver> applyPackage(const std::string& fileName, Occasion occasion,
                                       DriverRecord& record);
    Result<AppliedDriver> applyBareDriver(const std::string& fileName, Occasion occasion,
                                          DriverRecord& record);
    Result<> makeWhole(const Package& package, const std::string& manifestText,
                       const Manifest& manifest, const std::string& fileName, Occasion occasion);
    Result<std::string> checksum(const boost::filesystem::path& file, const FileStamp& stamp,
                                 const DriverRecord& record, Occasion occasion) const;
    Result<> writeChecksum(const std::string& fileName, const std::string& md5);
    Result<> conclude(const boost::filesystem::path& file, const FileStamp& stamp,
                      const std::string& md5, int version, DriverRecord& record);
    void removeRemains(const Error& why, Occasion occasion, const DriverRecord& record) const;
    void withdrawChecksum(const std::string& fileName) const;

    const ControllerRoot& root_;
    DriverLedger& ledger_;
    AppliedPackages kept_;
    bool unflushed_ = false;
};

}  // namespace overseer
