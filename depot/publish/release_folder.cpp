#include "depot/publish/release_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "depot/publish/file_copy.h"

namespace depot {
namespace {

namespace fs = std::filesystem;

constexpr const char* kReleaseFile = "/.release.json";
constexpr const char* kLinkTarget = "releases/";
constexpr std::size_t kLargestReleaseFile = std::size_t{64} << 20;

Result<void> makeFolder(const std::string& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (!error) fs::permissions(path, fs::perms(0755), error);  // whatever the publisher's mask is
    if (error) return failure(path + ": cannot be made: " + error.message());
    return {};
}

Result<Release> readReleaseFile(const std::string& folder) {
    const std::string path = folder + kReleaseFile;
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!file) return failure(path + ": " + std::generic_category().message(errno));
    const auto text = readAtMost(file, kLargestReleaseFile);
    if (!text) return failure(path, text.error());
    auto release = readRelease(*text);
    if (!release) return failure(path, release.error());
    return release;
}

}  // namespace

Result<void> ReleaseFolder::lock() {
    if (auto made = makeFolder(files_ + "/releases"); !made) return made;
    const std::string path = files_ + "/.publish.lock";
    lock_ = FileDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!lock_)
        return failure(path + ": cannot be opened: " + std::generic_category().message(errno));
    if (::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0)
        return failure(files_ + ": another publisher is at work here");
    return {};
}

Result<ReleaseFolder::Listing> ReleaseFolder::list() const {
    Listing listing;
    std::error_code error;
    const std::string folder = files_ + "/releases";
    fs::directory_iterator entries(folder, error);
    if (error == std::errc::no_such_file_or_directory) return listing;
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const std::string id = entries->path().filename().string();
        if (!isReleaseId(id)) continue;
        auto release = readReleaseFile(entries->path().string());
        if (release && release->id == id)
            listing.whole.push_back(std::move(*release));
        else
            listing.incomplete.push_back(id);
    }
    if (error) return failure(folder + ": cannot be listed: " + error.message());
    std::sort(listing.whole.begin(), listing.whole.end(),
              [](const Release& left, const Release& right) { return left.id < right.id; });
    std::sort(listing.incomplete.begin(), listing.incomplete.end());
    return listing;
}

Result<std::optional<std::string>> ReleaseFolder::current() const {
    std::error_code error;
    const std::string link = files_ + "/current";
    const fs::path target = fs::read_symlink(link, error);
    if (error == std::errc::no_such_file_or_directory) return std::nullopt;
    const std::string id = target.filename().string();
    if (error || target.string() != kLinkTarget + id || !isReleaseId(id))
        return failure(link + ": is not a link to a release; move it away");
    return id;
}

Result<void> ReleaseFolder::write(const Release& release,
                                  const std::vector<CheckedPackage>& packages,
                                  const Tick& tick) const {
    const std::string folder = folderOf(release.id);
    if (auto made = makeFolder(folder); !made) return made;
    std::size_t done = 0;
    for (const CheckedPackage& package : packages) {
        const auto sum = copyFile(package.path, folder + "/" + package.filename, release.fileTime);
        if (!sum) return tl::make_unexpected(sum.error());
        if (!package.document || *sum != package.document->md5sum)
            return failure(package.path + ": was changed after it was checked");
        if (auto goOn = tick(++done, packages.size()); !goOn) return goOn;
    }
    const std::string unfinished = folder + "/.release.unfinished";
    if (auto written = writeNewFile(unfinished, releaseText(release)); !written) return written;
    std::error_code error;
    fs::rename(unfinished, folder + kReleaseFile, error);
    if (error) return failure(folder + kReleaseFile + ": cannot be put there: " + error.message());
    if (auto flushed = flushFolder(folder); !flushed) return flushed;
    return flushFolder(files_ + "/releases");
}

Result<void> ReleaseFolder::verify(const Release& release) const {
    const auto kept = readReleaseFile(folderOf(release.id));
    if (!kept) return tl::make_unexpected(kept.error());
    if (kept->digest != release.digest)
        return failure(folderOf(release.id) + ": is not the release that was written");
    for (const Document& document : release.documents) {
        const std::string path = folderOf(release.id) + "/" + document.filename;
        const auto sum = md5Of(path);
        if (!sum) return tl::make_unexpected(sum.error());
        if (*sum != document.md5sum) return failure(path + ": is not the file that was published");
    }
    return {};
}

Result<void> ReleaseFolder::switchTo(const std::optional<std::string>& id) const {
    const std::string link = files_ + "/current";
    const std::string beside = files_ + "/.current.new";
    std::error_code error;
    if (!id) {
        fs::remove(link, error);
    } else {
        fs::remove(beside, error);
        fs::create_symlink(kLinkTarget + *id, beside, error);
        if (!error) fs::rename(beside, link, error);
    }
    if (error) return failure(link + ": cannot be changed: " + error.message());
    return flushFolder(files_);
}

Result<void> ReleaseFolder::remove(const std::string& id) const {
    std::error_code error;
    // The mark goes first: what is half removed is not a whole release.
    fs::remove(folderOf(id) + kReleaseFile, error);
    if (!error) fs::remove_all(folderOf(id), error);
    if (error) return failure(folderOf(id) + ": cannot be removed: " + error.message());
    return {};
}

}  // namespace depot
