// The one operation behind update, add, install, restore and start.

#include "drivers/apply.h"

#include <nvhost/children.h>
#include <nvhost/replacement.h>

#include <log4cplus/loggingmacros.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>

#include "common/system_failure.h"
#include "drivers/file_names.h"
#include "drivers/unpacked_copy.h"
#include "root/file_text.h"
#include "root/placement.h"

namespace overseer {
namespace {

using boost::filesystem::path;

bool isSame(const DriverRecord& one, const DriverRecord& other) {
    return one.version == other.version && one.appliedMd5 == other.appliedMd5 &&
           one.previousMd5 == other.previousMd5 && one.checkedSize == other.checkedSize &&
           one.checkedNanoseconds == other.checkedNanoseconds;
}

/// Version of the copy's manifest, nothing when it has none that can be read.
std::optional<int> versionOfCopy(const path& folder) {
    const Result<std::string> text = readText(folder / Package::kManifest);
    if (!text) return std::nullopt;
    const Result<Manifest> manifest = parseManifest(*text, folder.string());
    if (!manifest) return std::nullopt;
    return manifest->version;
}

}  // namespace

AppliedDriver describeDriver(const std::string& fileName, const Manifest& manifest,
                             const Package* package) {
    AppliedDriver driver;
    driver.version = manifest.version;
    driver.agent = manifest.agent;
    driver.name = manifest.name.empty() ? path(fileName).stem().string() : manifest.name;
    if (package != nullptr && package->holdsFile(manifest.library)) {
        driver.library = manifest.library;
    }
    return driver;
}

DriverApplication::DriverApplication(const ControllerRoot& root, DriverLedger& ledger)
    : root_(root), ledger_(ledger), kept_(root) {}

Result<AppliedDriver> DriverApplication::apply(const std::string& fileName, Occasion occasion) {
    if (const Result<> named = checkDriverFileName(fileName); !named) {
        return tl::unexpected<Error>(named.error());
    }
    Result<std::optional<DriverRecord>> found = ledger_.find(fileName);
    DriverRecord record;
    if (found && *found) record = **found;
    record.fileName = fileName;

    Result<AppliedDriver> applied =
        found ? attempt(fileName, occasion, record)
              : Result<AppliedDriver>(tl::unexpected<Error>(found.error()));
    if (applied) return applied;
    // Where nobody has touched the file and the machine keeps it from being looked at, it still is
    // what it was.
    const bool ofMachine = applied.error().ofMachine;
    if (!ofMachine || occasion != Occasion::kStart) withdrawChecksum(fileName);
    // An install puts the file back that was in place before, by itself.
    if (ofMachine || record.appliedMd5.empty() || occasion == Occasion::kInstall) {
        return inContext(fileName, applied.error());
    }
    return failure("{}: {}; `overseerctl restore {}` puts back a file that was good", fileName,
                   applied.error().message, fileName);
}

Result<AppliedDriver> DriverApplication::attempt(const std::string& fileName, Occasion occasion,
                                                 DriverRecord& record) {
    const bool asked = occasion == Occasion::kUpdate || occasion == Occasion::kAdd;
    if (asked && nv::hosting::takeReplacementFailure(fileName)) {
        return failure("the file in place could not be replaced");
    }
    return isPackageName(fileName) ? applyPackage(fileName, occasion, record)
                                   : applyBareDriver(fileName, occasion, record);
}

Result<AppliedDriver> DriverApplication::applyPackage(const std::string& fileName,
                                                      Occasion occasion, DriverRecord& record) {
    const path file = driverFile(root_, fileName);
    const Result<FileStamp> stamp = FileStamp::of(file);
    if (!stamp) return tl::unexpected<Error>(stamp.error());
    const auto refused = [&](const Error& why) {
        removeRemains(why, occasion, record);
        return tl::unexpected<Error>(why);
    };
    const Result<Package> package = Package::open(file);
    if (!package) return refused(package.error());
    const Result<std::string> text = package->manifestText();
    if (!text) return refused(text.error());
    const Result<Manifest> manifest = parseManifest(*text, file.string());
    if (!manifest) return refused(manifest.error());

    Result<> done = makeWhole(*package, *text, *manifest, fileName, occasion);
    if (!done) return refused(done.error());
    const Result<std::string> md5 = checksum(file, *stamp, record, occasion);
    if (!md5) return tl::unexpected<Error>(md5.error());
    done = writeChecksum(fileName, *md5);
    if (done) done = conclude(file, *stamp, *md5, manifest->version, record);
    if (!done) return tl::unexpected<Error>(done.error());

    AppliedDriver applied = describeDriver(fileName, *manifest, &*package);
    if (!manifest->library.empty() && applied.library.empty()) {
        LOG4CPLUS_WARN(log4cplus::Logger::getRoot(),
                       "drivers: the manifest of "
                           << fileName << " names the library " << manifest->library
                           << ", which is not in the package: no agent is loaded out of it; tell "
                              "its author");
    }
    return applied;
}

Result<AppliedDriver> DriverApplication::applyBareDriver(const std::string& fileName,
                                                         Occasion occasion, DriverRecord& record) {
    const path file = driverFile(root_, fileName);
    const Result<FileStamp> stamp = FileStamp::of(file);
    if (!stamp) return tl::unexpected<Error>(stamp.error());
    const Result<std::string> text = readText(file);
    if (!text) return tl::unexpected<Error>(text.error());
    const Result<Manifest> manifest = parseManifest(*text, file.string());
    if (!manifest) return tl::unexpected<Error>(manifest.error());
    const Result<std::string> md5 = checksum(file, *stamp, record, occasion);
    if (!md5) return tl::unexpected<Error>(md5.error());
    if (const Result<> done = conclude(file, *stamp, *md5, manifest->version, record); !done) {
        return tl::unexpected<Error>(done.error());
    }
    return describeDriver(fileName, *manifest, nullptr);
}

Result<> DriverApplication::makeWhole(const Package& package, const std::string& manifestText,
                                      const Manifest& manifest, const std::string& fileName,
                                      Occasion occasion) {
    const path folder = unpackedFolder(root_, fileName);
    // What was unpacked just now may lie on top of what could not be removed before.
    const Scrutiny scrutiny = occasion == Occasion::kStart ? Scrutiny::kSizes : Scrutiny::kContent;
    const auto found = differenceFrom(package, manifestText, folder,
                                      checksumFile(root_, fileName).filename().string(), scrutiny);
    if (!found) return tl::unexpected<Error>(found.error());
    const std::optional<std::string>& difference = *found;
    if (!difference) return {};
    withdrawChecksum(fileName);
    if (occasion == Occasion::kStart) {
        const std::optional<int> version = versionOfCopy(folder);
        if (version && *version > manifest.version) {
            return failure(
                "its unpacked copy is of version {}, the package of {}; the copy is kept", *version,
                manifest.version);
        }
    }
    if (nv::hosting::childrenStopped()) {
        return failure("the host is stopping, and {}", *difference);
    }
    LOG4CPLUS_DEBUG(log4cplus::Logger::getRoot(),
                    "drivers: unpacking " << fileName << ": " << *difference);
    unflushed_ = true;
    Result<> replaced = replaceCopy(package, folder);
    if (!replaced) return inContext("it cannot be unpacked", replaced.error());
    return {};
}

Result<std::string> DriverApplication::checksum(const path& file, const FileStamp& stamp,
                                                const DriverRecord& record,
                                                Occasion occasion) const {
    // Only a start, with thousands of files to look at, takes the word of size and time.
    if (occasion == Occasion::kStart && stamp.isOf(record)) return record.appliedMd5;
    return md5Of(file);
}

Result<> DriverApplication::writeChecksum(const std::string& fileName, const std::string& md5) {
    const path file = checksumFile(root_, fileName);
    if (const Result<std::string> present = readText(file); present && *present == md5) return {};
    unflushed_ = true;
    // Not flushed: a torn one matches no package, and is written again at the next start. Prepared
    // beside the copy, so that a start finds what a crash left without a look into every copy.
    return writeInPlace(file, md5, Flush::kNever, root_.packagedDrivers());
}

Result<> DriverApplication::conclude(const path& file, const FileStamp& stamp,
                                     const std::string& md5, int version, DriverRecord& record) {
    DriverRecord after = record;
    after.version = version;
    const Result<> kept = kept_.keep(file, md5, after);
    if (!kept) {
        LOG4CPLUS_WARN(log4cplus::Logger::getRoot(),
                       "drivers: " << after.fileName
                                   << " cannot be kept for restoring: " << kept.error().message);
    }
    after.checkedSize = kept ? stamp.size : 0;
    after.checkedNanoseconds = kept ? stamp.nanoseconds : 0;
    if (isSame(record, after)) return {};
    unflushed_ = true;
    return ledger_.store(after);
}

/// What was unpacked of a package that is refused may fill the disk, which then takes neither the
/// outcome nor any setting. A copy of the version on record is the last good one, and stays.
void DriverApplication::removeRemains(const Error& why, Occasion occasion,
                                      const DriverRecord& record) const {
    const bool asked = occasion == Occasion::kUpdate || occasion == Occasion::kAdd;
    if (!asked || why.ofMachine || nv::hosting::childrenStopped()) return;
    const path folder = unpackedFolder(root_, record.fileName);
    if (versionOfCopy(folder) == record.version) return;
    boost::system::error_code ignored;
    boost::filesystem::remove_all(folder, ignored);
}

void DriverApplication::withdrawChecksum(const std::string& fileName) const {
    if (isPackageName(fileName)) ::unlink(checksumFile(root_, fileName).c_str());
}

Result<> DriverApplication::flushFolders() {
    if (!unflushed_) return {};
    // One call for a file system flushes what was unpacked too, the driver folders may be others.
    for (const path& folder : {root_.state(), root_.packagedDrivers(), root_.plainDrivers()}) {
        if (Result<> flushed = flushFileSystem(folder); !flushed) return flushed;
    }
    unflushed_ = false;
    return {};
}

}  // namespace overseer
