// Driver packages, over libzip.

#include "drivers/package.h"

#include <nvhost/regular_file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <functional>

#include "common/system_failure.h"
#include "root/file_text.h"

namespace overseer {
namespace fs = boost::filesystem;

namespace {

constexpr zip_int64_t kMostMembers = 65'536;
constexpr std::uint64_t kLargestContent = 1u << 30;
constexpr std::uint64_t kLargestManifest = 16u << 20;
constexpr std::uint64_t kLongestLink = 4096;
constexpr const char* kItself = ".";  // how some programs list the folder that they pack

using Stream = std::unique_ptr<zip_file_t, decltype(&zip_fclose)>;
using Sink = std::function<bool(const char* data, std::size_t size)>;

tl::unexpected<Error> openFailure(const fs::path& file, const boost::system::error_code& error) {
    if (error.category() == boost::system::system_category() ||
        error.category() == boost::system::generic_category()) {
        return readFailure(file, error);
    }
    return failure("{}: not a readable package: {}", file.string(), error.message());
}

/// What the library says; a read that the system refused is the machine's fault.
tl::unexpected<Error> zipFailure(const std::string& what, zip_error_t* error) {
    const bool ofMachine =
        zip_error_code_zip(error) == ZIP_ER_MEMORY ||
        (zip_error_system_type(error) == ZIP_ET_SYS && isOfMachine(zip_error_code_system(error)));
    return tl::unexpected<Error>(Error{what + ": " + zip_error_strerror(error), ofMachine});
}

std::string nameOf(const PackageMember& member) {
    return "the member \"" + member.name + "\"";
}

/// As unzip reads it: a part "." says nothing. What is nothing else is the folder itself.
std::string withoutDots(const std::string& name) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t slash = std::min(name.find('/', begin), name.size());
        parts.push_back(name.substr(begin, slash - begin));
        begin = slash + 1;
    }
    std::erase(parts, kItself);
    return parts.empty() ? kItself : fmt::format("{}", fmt::join(parts, "/"));
}

/// Hands a member's content to `sink`, exactly as much as the directory says; the library compares
/// the checksum where the content ends.
Result<> readContent(zip_t* archive, const PackageMember& member, const Sink& sink) {
    const Stream stream(zip_fopen_index(archive, member.index, 0), zip_fclose);
    if (!stream) return zipFailure(nameOf(member), zip_get_error(archive));
    std::vector<char> piece(64u << 10);
    std::uint64_t total = 0;
    for (;;) {
        const zip_int64_t count = zip_fread(stream.get(), piece.data(), piece.size());
        if (count < 0) {
            return zipFailure(nameOf(member), zip_file_get_error(stream.get()));
        }
        if (count == 0) break;
        total += static_cast<std::uint64_t>(count);
        if (total > member.size) break;
        if (!sink(piece.data(), static_cast<std::size_t>(count))) {
            return systemFailure(nameOf(member) + " cannot be written", errno);
        }
    }
    if (total == member.size) return {};
    return failure("the member \"{}\" is not as large as the package says", member.name);
}

Result<std::string> readText(zip_t* archive, const PackageMember& member, std::uint64_t limit) {
    if (member.size > limit) {
        return failure("the member \"{}\" is larger than {} bytes", member.name, limit);
    }
    std::string text;
    const Result<> read = readContent(archive, member, [&text](const char* data, std::size_t size) {
        text.append(data, size);
        return true;
    });
    if (!read) return tl::unexpected<Error>(read.error());
    return text;
}

bool writeAll(int file, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t step = ::write(file, data, size);
        if (step < 0 && errno != EINTR) return false;
        if (step <= 0) continue;
        data += step;
        size -= static_cast<std::size_t>(step);
    }
    return true;
}

/// The kind that an archive's attributes give; the name's last slash makes a folder.
Result<PackageMember::Kind> kindOf(const std::string& name, mode_t mode, bool slash) {
    const mode_t type = mode & S_IFMT;
    if (slash && (type == 0 || type == S_IFDIR)) return PackageMember::Kind::kFolder;
    if (!slash && (type == 0 || type == S_IFREG)) return PackageMember::Kind::kFile;
    if (!slash && type == S_IFLNK) return PackageMember::Kind::kLink;
    return failure("the member \"{}\" is neither file, folder nor link", name);
}

}  // namespace

Package::Package(fs::path file, nv::hosting::Archive archive, std::vector<PackageMember> members)
    : file_(std::move(file)), archive_(std::move(archive)), members_(std::move(members)) {}

Result<Package> Package::open(const fs::path& file) {
    boost::system::error_code error;
    nv::hosting::Archive archive = nv::hosting::openArchive(file.string(), error);
    if (!archive) return openFailure(file, error);
    Result<std::vector<PackageMember>> members = readMembers(archive.get());
    if (!members) return inContext(file.string(), members.error());
    if (const Result<> safe = checkMembers(*members); !safe) {
        return inContext(file.string(), safe.error());
    }
    return Package(file, std::move(archive), std::move(*members));
}

Result<std::vector<PackageMember>> Package::readMembers(zip* archive) {
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    if (count > kMostMembers) return failure("more than {} members", kMostMembers);
    std::vector<PackageMember> members;
    std::uint64_t total = 0;
    for (zip_int64_t index = 0; index < count; ++index) {
        Result<PackageMember> member = readMember(archive, static_cast<std::uint64_t>(index));
        if (!member) return tl::unexpected<Error>(member.error());
        if (member->size > kLargestContent - total) {
            return failure("more than {} bytes when unpacked", kLargestContent);
        }
        if (member->name == kItself && member->kind == PackageMember::Kind::kFolder) continue;
        total += member->size;
        members.push_back(std::move(*member));
    }
    return members;
}

Result<PackageMember> Package::readMember(zip* archive, std::uint64_t index) {
    zip_stat_t status;
    if (zip_stat_index(archive, index, 0, &status) != 0) {
        return failure("member {}: {}", index, zip_strerror(archive));
    }
    PackageMember member;
    member.name = status.name;
    member.index = index;
    member.size = status.size;
    member.checksum = status.crc;
    if (status.encryption_method != ZIP_EM_NONE) {
        return failure("the member \"{}\" is encrypted", member.name);
    }
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    zip_file_get_external_attributes(archive, index, 0, &system, &attributes);
    const auto mode = static_cast<mode_t>(attributes >> 16);
    const bool slash = !member.name.empty() && member.name.back() == '/';
    const Result<PackageMember::Kind> kind = kindOf(member.name, mode, slash);
    if (!kind) return tl::unexpected<Error>(kind.error());
    if (slash) member.name.pop_back();
    member.name = withoutDots(member.name);
    member.kind = *kind;
    member.mode = mode & 0777;
    if (member.kind == PackageMember::Kind::kLink) {
        Result<std::string> target = readText(archive, member, kLongestLink);
        if (!target) return tl::unexpected<Error>(target.error());
        member.linkTarget = std::move(*target);
    }
    return member;
}

bool Package::holdsFile(const std::string& name) const {
    return std::any_of(members_.begin(), members_.end(), [&name](const PackageMember& member) {
        return member.kind == PackageMember::Kind::kFile && member.name == name;
    });
}

Result<std::string> Package::manifestText() const {
    for (const PackageMember& member : members_) {
        if (member.name != kManifest || member.kind != PackageMember::Kind::kFile) continue;
        Result<std::string> text = readText(archive_.get(), member, kLargestManifest);
        if (!text) return inContext(file_.string(), text.error());
        return text;
    }
    return failure("{} holds no {}", file_.string(), kManifest);
}

Result<> Package::checkContent() const {
    for (const PackageMember& member : members_) {
        if (member.kind != PackageMember::Kind::kFile) continue;
        const Result<> read =
            readContent(archive_.get(), member, [](const char*, std::size_t) { return true; });
        if (!read) return inContext(file_.string(), read.error());
    }
    return {};
}

Result<> Package::unpackTo(const fs::path& folder) const {
    boost::system::error_code error;
    for (const PackageMember& member : members_) {
        const fs::path target = folder / member.name;
        const bool isFolder = member.kind == PackageMember::Kind::kFolder;
        fs::create_directories(isFolder ? target : target.parent_path(), error);
        if (error) return systemFailure(target.string(), error);
        if (member.kind != PackageMember::Kind::kFile) continue;
        if (Result<> unpacked = unpackFile(member, target); !unpacked) {
            return inContext(file_.string(), unpacked.error());
        }
    }
    for (const PackageMember& member : members_) {
        if (member.kind != PackageMember::Kind::kLink) continue;
        fs::create_symlink(member.linkTarget, folder / member.name, error);
        if (error) return systemFailure((folder / member.name).string(), error);
    }
    return {};
}

Result<> Package::unpackFile(const PackageMember& member, const fs::path& target) const {
    // Its owner can always replace what a package brings.
    const mode_t mode = member.mode == 0 ? 0644 : member.mode | 0600;
    const nv::hosting::Descriptor file(
        ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (!file.isOpen()) return systemFailure(target.string(), errno);
    return readContent(archive_.get(), member, [&file](const char* data, std::size_t size) {
        return writeAll(file.get(), data, size);
    });
}

}  // namespace overseer
