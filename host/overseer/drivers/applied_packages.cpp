// What was applied, kept so that it can be put back.

#include "drivers/applied_packages.h"

#include <nv/crypto.h>

#include <sys/stat.h>
#include <cerrno>

#include "common/system_failure.h"
#include "root/file_text.h"
#include "root/placement.h"

namespace overseer {
namespace {

using boost::filesystem::path;

enum class Relation { kAbsent, kSameFile, kOther };

Result<Relation> relationOf(const path& kept, const path& file) {
    struct stat one {};
    struct stat other {};
    if (::lstat(kept.c_str(), &one) != 0) {
        if (errno == ENOENT) return Relation::kAbsent;
        // Not to be taken for absent: what it holds would be given up.
        return systemFailure(kept.string(), errno);
    }
    const bool same = ::lstat(file.c_str(), &other) == 0 && one.st_dev == other.st_dev &&
                      one.st_ino == other.st_ino;
    return same ? Relation::kSameFile : Relation::kOther;
}

bool isContent(const path& file, const std::string& md5) {
    const Result<std::string> found = md5Of(file);
    return found && *found == md5;
}

}  // namespace

Result<std::string> md5Of(const path& file) {
    boost::system::error_code error;
    std::string text = nv::crypto::computeFileHash(file.string(), "md5", error,
                                                   nv::crypto::CryptoEncoding::kHexLower);
    if (error) return readFailure(file, error);
    return text;
}

path AppliedPackages::applied(const std::string& name) const {
    return root_.appliedPackages() / name;
}

path AppliedPackages::previous(const std::string& name) const {
    return root_.previousPackages() / name;
}

Result<> AppliedPackages::keep(const path& file, const std::string& md5,
                               DriverRecord& record) const {
    if (record.appliedMd5 != md5) {
        if (Result<> displaced = displace(file, record); !displaced) return displaced;
    }
    const path kept = applied(record.fileName);
    const Result<Relation> relation = relationOf(kept, file);
    if (!relation) return tl::unexpected<Error>(relation.error());
    if (*relation != Relation::kSameFile) {
        if (Result<> linked = linkInPlace(file, kept); !linked) return linked;
    }
    record.appliedMd5 = md5;
    return {};
}

Result<> AppliedPackages::displace(const path& file, DriverRecord& record) const {
    if (record.appliedMd5.empty()) return {};
    const path kept = applied(record.fileName);
    const path before = previous(record.fileName);
    const Result<Relation> relation = relationOf(kept, file);
    if (!relation) return tl::unexpected<Error>(relation.error());
    switch (*relation) {
        case Relation::kAbsent:
            return {};
        case Relation::kSameFile:
            // Either a crash came between keeping the new file and its record, or the new content
            // was written into the old file. In the first case the old one has been moved already.
            if (isContent(before, record.appliedMd5)) record.previousMd5 = record.appliedMd5;
            return {};
        case Relation::kOther:
            break;
    }
    // A second name rather than a move: after a crash right here the old file is still known.
    if (Result<> linked = linkInPlace(kept, before); !linked) return linked;
    record.previousMd5 = record.appliedMd5;
    return {};
}

Result<path> AppliedPackages::toRestore(const DriverRecord& record,
                                        const std::string& md5InPlace) const {
    const bool wasApplied = md5InPlace == record.appliedMd5;
    const std::string& md5 = wasApplied ? record.previousMd5 : record.appliedMd5;
    if (md5.empty()) return failure("no earlier file of {} is kept", record.fileName);
    path kept = wasApplied ? previous(record.fileName) : applied(record.fileName);
    const Result<std::string> found = md5Of(kept);
    if (!found) return tl::unexpected<Error>(found.error());
    if (*found == md5) return kept;
    return failure(
        "{} is no longer the file that was applied: somebody wrote into it; install a good copy "
        "with `overseer install`",
        kept.string());
}

}  // namespace overseer
