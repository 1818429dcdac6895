// Follows the folder of packages. A look lists the folder and stats its files; only what changed is
// read and hashed again.
#include "depot/catalogue.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "depot/package_reader.h"
#include "depot/sidecar.h"
#include "depot/unicode.h"

namespace depot {
namespace {

/// File times advance in ticks of up to 10 ms: a file that changed less than this before it was
/// read can change again without its time showing it, so the next look reads it again.
constexpr std::chrono::nanoseconds kSettlingTime = std::chrono::milliseconds(100);

struct FolderClose {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

std::optional<FileStamp> stampAt(int folder, const char* name) {
    struct stat status {};
    if (::fstatat(folder, name, &status, 0) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return stampOf(status);
}

bool isRecent(const FileStamp& stamp, std::chrono::system_clock::time_point now) {
    const auto age = now.time_since_epoch() - std::chrono::nanoseconds(stamp.modifiedNanoseconds);
    return age < kSettlingTime && age > -kSettlingTime;
}

/// A name for a line on a terminal, where a control character could do harm.
std::string printable(const std::string& filename) {
    std::string text;
    for (const char character : filename)
        text += static_cast<unsigned char>(character) < 0x20 || character == 0x7F ? '?' : character;
    return text;
}

/// The document of a package and its sidecar.
Result<Document> readDocument(const std::string& path, const std::string& filename) {
    if (!isUtf8(filename)) return failure("its name is not UTF-8");
    if (hasControlCharacter(filename)) return failure("its name holds a control character");
    auto document = readPackage(path, filename);
    if (!document) return document;
    const std::string suffix(kSidecarSuffix);
    if (auto read = readSidecarFile(path + suffix, *document); !read)
        return failure("its sidecar " + filename + suffix, read.error());
    return document;
}

}  // namespace

Catalogue::Catalogue(std::string folder, Report report, std::chrono::milliseconds interval)
    : folder_(std::move(folder)), report_(std::move(report)), interval_(interval) {}

Result<void> Catalogue::refresh() {
    const std::lock_guard lock(refreshing_);
    return refreshLocked();
}

std::shared_ptr<const Snapshot> Catalogue::snapshot() {
    const std::unique_lock lock(refreshing_, std::try_to_lock);
    const bool due =
        lock && (!looked_ || std::chrono::steady_clock::now() - lastLook_ >= interval_);
    if (due) {
        const auto refreshed = refreshLocked();
        if (!refreshed && !std::exchange(folderFailed_, true)) report_(refreshed.error().message);
    }
    return current();
}

std::shared_ptr<const Snapshot> Catalogue::current() const {
    const std::lock_guard lock(publishing_);
    return snapshot_;
}

Result<Catalogue::Listing> Catalogue::listFolder() const {
    const std::unique_ptr<DIR, FolderClose> folder(::opendir(folder_.c_str()));
    if (!folder)
        return failure(folder_ + ": cannot be listed: " + std::generic_category().message(errno));
    const int descriptor = ::dirfd(folder.get());
    Listing listing;
    // One thread at a time lists, and the stream is its own.
    while (const dirent* each = ::readdir(folder.get())) {  // NOLINT(concurrency-mt-unsafe)
        const std::string name = each->d_name;
        if (!isPackageName(name)) continue;
        const auto package = stampAt(descriptor, name.c_str());
        if (!package) continue;
        const std::string sidecar = name + std::string(kSidecarSuffix);
        listing.emplace(name, Stamps{*package, stampAt(descriptor, sidecar.c_str())});
    }
    return listing;
}

Result<void> Catalogue::refreshLocked() {
    const auto listing = listFolder();
    lastLook_ = std::chrono::steady_clock::now();
    looked_ = true;
    if (!listing) return tl::make_unexpected(listing.error());
    folderFailed_ = false;
    bool changed = known_.size() != listing->size();
    std::map<std::string, Known> known;
    std::vector<Snapshot::Entry> entries;
    for (const auto& [filename, stamps] : *listing) {
        const auto before = known_.find(filename);
        const bool same = before != known_.end() && before->second.stamps == stamps;
        const bool reuse = same && before->second.settled;
        Known now = reuse ? before->second : readEntry(filename, stamps, !same);
        if (now.entry) entries.push_back(now.entry);
        known.emplace(filename, std::move(now));
        changed = changed || !reuse;
    }
    known_ = std::move(known);
    if (!changed) return {};
    auto snapshot = std::make_shared<const Snapshot>(std::move(entries));
    const std::lock_guard lock(publishing_);
    snapshot_ = std::move(snapshot);
    return {};
}

std::optional<Catalogue::Stamps> Catalogue::stampsNow(const std::string& filename) const {
    const std::string path = pathOf(filename);
    const auto package = stampAt(AT_FDCWD, path.c_str());
    if (!package) return std::nullopt;
    return Stamps{*package, stampAt(AT_FDCWD, (path + std::string(kSidecarSuffix)).c_str())};
}

Catalogue::Known Catalogue::readEntry(const std::string& filename, const Stamps& stamps,
                                      bool changed) const {
    const auto now = std::chrono::system_clock::now();
    Known known{stamps, !isRecent(stamps.package, now), nullptr};
    if (stamps.sidecar && isRecent(*stamps.sidecar, now)) known.settled = false;
    auto document = readDocument(pathOf(filename), filename);
    if (stampsNow(filename) != stamps) {
        // Written while it was read: whatever was found is not to be believed, nor worth a line.
        known.stamps = {};
        known.settled = false;
        return known;
    }
    if (!document) {
        if (changed) report_("left out: " + printable(filename) + ": " + document.error().message);
        return known;
    }
    known.entry =
        std::make_shared<CatalogueEntry>(CatalogueEntry{std::move(*document), stamps.package});
    return known;
}

tl::expected<Catalogue::OpenPackage, Catalogue::OpenFailure> Catalogue::open(
    const std::string& filename) {
    auto opened = openKnown(filename);
    if (opened || opened.error() == OpenFailure::kNotFound) return opened;
    const auto refreshed = refresh();
    return refreshed ? openKnown(filename) : tl::make_unexpected(OpenFailure::kNotFound);
}

tl::expected<Catalogue::OpenPackage, Catalogue::OpenFailure> Catalogue::openKnown(
    const std::string& filename) {
    auto entry = snapshot()->find(filename);
    if (!entry) return tl::make_unexpected(OpenFailure::kNotFound);
    FileDescriptor file(::open(pathOf(filename).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || stampOf(status) != entry->stamp)
        return tl::make_unexpected(OpenFailure::kChanging);
    return OpenPackage{std::move(file), std::move(entry)};
}

}  // namespace depot
