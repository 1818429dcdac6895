// The unpacked copy of a package: whether it is whole, and how it is made anew.

#include "drivers/unpacked_copy.h"

#include <nvhost/regular_file.h>
#include <nvhost/replacement.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdio>
#include <map>

#include "common/system_failure.h"
#include "root/file_text.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

using Kind = PackageMember::Kind;
using Difference = std::optional<std::string>;

/// What unzip prints goes there when a driver looks into its package.
constexpr const char* kUnzipOutput = "unzip.out";

bool isSame(const PackageMember& member, const struct stat& status) {
    switch (member.kind) {
        case Kind::kFile:
            return S_ISREG(status.st_mode) &&
                   static_cast<std::uint64_t>(status.st_size) == member.size;
        case Kind::kFolder:
            return S_ISDIR(status.st_mode);
        case Kind::kLink:
            return S_ISLNK(status.st_mode);
    }
    return false;
}

/// CRC-32 as archives state it.
Result<std::uint32_t> checksumOf(const fs::path& file) {
    boost::system::error_code error;
    const nv::hosting::Descriptor opened = nv::hosting::openRegularFile(file.string(), error);
    if (error) return readFailure(file, error);
    std::array<unsigned char, 64u << 10> piece{};
    uLong sum = ::crc32(0, nullptr, 0);
    for (;;) {
        const ssize_t count = ::read(opened.get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return systemFailure(file.string(), errno);
        if (count == 0) return static_cast<std::uint32_t>(sum);
        sum = ::crc32(sum, piece.data(), static_cast<uInt>(count));
    }
}

/// Links first: from then on no path below `folder` leads out of it.
Result<Difference> strangeLink(const Package& package, const fs::path& folder) {
    std::map<fs::path, std::string> known;
    for (const PackageMember& member : package.members()) {
        if (member.kind == Kind::kLink) known[folder / member.name] = member.linkTarget;
    }
    boost::system::error_code error;
    fs::recursive_directory_iterator entry(folder, error);
    for (const fs::recursive_directory_iterator end; !error && entry != end;
         entry.increment(error)) {
        if (entry->symlink_status(error).type() != fs::symlink_file) continue;
        const auto expected = known.find(entry->path());
        if (expected != known.end() && fs::read_symlink(entry->path(), error) == expected->second) {
            continue;
        }
        return Difference(entry->path().string() + " is a link that is not the package's");
    }
    if (isOfMachine(error.value())) return systemFailure(folder.string(), error);
    if (error) return Difference(folder.string() + " cannot be read: " + error.message());
    return Difference();
}

Result<Difference> differenceAt(const fs::path& place, const PackageMember& member,
                                Scrutiny scrutiny) {
    struct stat status {};
    if (::lstat(place.c_str(), &status) != 0) {
        if (isOfMachine(errno)) return systemFailure(place.string(), errno);
        return Difference(place.string() + " is missing");
    }
    if (!isSame(member, status)) return Difference(place.string() + " is not as in the package");
    if (scrutiny == Scrutiny::kSizes || member.kind != Kind::kFile) return Difference();
    const Result<std::uint32_t> sum = checksumOf(place);
    if (!sum && sum.error().ofMachine) return tl::unexpected(sum.error());
    if (sum && *sum == member.checksum) return Difference();
    return Difference(place.string() + " has another content than in the package");
}

Result<> swapIn(const fs::path& staging, const fs::path& folder) {
    if (::renameat2(AT_FDCWD, staging.c_str(), AT_FDCWD, folder.c_str(), RENAME_EXCHANGE) == 0) {
        return {};
    }
    const bool absent = errno == ENOENT;
    // Nothing there yet, or a file system that cannot exchange: then there is an instant without a
    // copy, which the next start repairs.
    const fs::path aside = folder.parent_path() / nv::hosting::siblingName();
    if (!absent && ::rename(folder.c_str(), aside.c_str()) != 0) {
        return systemFailure(folder.string(), errno);
    }
    if (::rename(staging.c_str(), folder.c_str()) == 0) {
        boost::system::error_code ignored;
        fs::remove_all(aside, ignored);
        return {};
    }
    const int reason = errno;
    ::rename(aside.c_str(), folder.c_str());
    return systemFailure(folder.string(), reason);
}

}  // namespace

Result<Difference> differenceFrom(const Package& package, const std::string& manifestText,
                                  const fs::path& folder, const std::string& hostFile,
                                  Scrutiny scrutiny) {
    struct stat status {};
    if (::lstat(folder.c_str(), &status) != 0) {
        if (isOfMachine(errno)) return systemFailure(folder.string(), errno);
        return Difference(folder.string() + " is missing");
    }
    if (!S_ISDIR(status.st_mode)) return Difference(folder.string() + " is no folder");
    if (Result<Difference> link = strangeLink(package, folder); !link || *link) return link;
    for (const PackageMember& member : package.members()) {
        if (member.name == hostFile || member.name == kUnzipOutput) continue;
        Result<Difference> found = differenceAt(folder / member.name, member, scrutiny);
        if (!found || *found) return found;
    }
    const fs::path manifest = folder / Package::kManifest;
    const Result<std::string> text = readText(manifest);
    if (!text && text.error().ofMachine) return tl::unexpected(text.error());
    if (text && *text == manifestText) return Difference();
    return Difference(manifest.string() + " is not the package's");
}

Result<> replaceCopy(const Package& package, const fs::path& folder) {
    const fs::path staging = folder.parent_path() / nv::hosting::siblingName();
    boost::system::error_code ignored;
    if (::mkdir(staging.c_str(), 0755) != 0) {
        return systemFailure("a folder beside " + folder.string() + " cannot be made", errno);
    }
    Result<> done = package.unpackTo(staging);
    if (done) done = swapIn(staging, folder);
    fs::remove_all(staging, ignored);  // what was there before, or what could not be completed
    return done;
}

}  // namespace overseer
