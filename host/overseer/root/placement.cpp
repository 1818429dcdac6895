// Files put in place of others, as the host itself does it.

#include "root/placement.h"

#include <nvhost/regular_file.h>
#include <nvhost/replacement.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

#include "common/system_failure.h"
#include "root/file_text.h"

namespace overseer {
namespace {

using boost::filesystem::path;
using nv::hosting::Descriptor;

constexpr mode_t kNewFileMode = 0644;

mode_t modeFor(const path& target) {
    struct stat status {};
    const bool there = ::lstat(target.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return there ? status.st_mode & 07777 : kNewFileMode;
}

bool writeAll(int file, const std::string& text) {
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t step = ::write(file, text.data() + written, text.size() - written);
        if (step < 0 && errno != EINTR) return false;
        if (step > 0) written += static_cast<std::size_t>(step);
    }
    return true;
}

Result<> renameOver(const path& sibling, const path& target) {
    if (::rename(sibling.c_str(), target.c_str()) == 0) return {};
    const int reason = errno;
    ::unlink(sibling.c_str());
    return systemFailure(target.string() + " could not be put in place", reason);
}

}  // namespace

Result<> writeInPlace(const path& target, const std::string& text, Flush flush,
                      const path& siblingFolder) {
    const path sibling =
        (siblingFolder.empty() ? target.parent_path() : siblingFolder) / nv::hosting::siblingName();
    const Descriptor file(
        ::open(sibling.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.isOpen()) {
        return systemFailure(target.string() + " could not be written", errno);
    }
    const bool written = writeAll(file.get(), text) && ::fchmod(file.get(), modeFor(target)) == 0 &&
                         (flush == Flush::kNever || ::fdatasync(file.get()) == 0);
    if (written) return renameOver(sibling, target);
    const int reason = errno;
    ::unlink(sibling.c_str());
    return systemFailure(target.string() + " could not be written", reason);
}

Result<> copyInPlace(const path& source, const path& target) {
    boost::system::error_code error;
    nv::hosting::placeCopy(source, target, error);
    if (!error) return {};
    struct stat status {};
    if (::lstat(source.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return readFailure(source, error);
    }
    return systemFailure(source.string() + " could not be copied to " + target.string(), error);
}

Result<> linkInPlace(const path& source, const path& target) {
    struct stat status {};
    if (::lstat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return failure("{} is in the way: it is no regular file", target.string());
    }
    const path sibling = target.parent_path() / nv::hosting::siblingName();
    if (::lstat(source.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        ::link(source.c_str(), sibling.c_str()) != 0) {
        return copyInPlace(source, target);
    }
    Result<> renamed = renameOver(sibling, target);
    // Renaming one name of a file over another does nothing and leaves both.
    ::unlink(sibling.c_str());
    return renamed;
}

Result<> flushFolder(const path& folder) {
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.isOpen() && ::fsync(opened.get()) == 0) return {};
    return systemFailure("cannot flush the folder " + folder.string(), errno);
}

Result<> flushFileSystem(const path& folder) {
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.isOpen() && ::syncfs(opened.get()) == 0) return {};
    return systemFailure(folder.string() + " could not be flushed to the disk", errno);
}

}  // namespace overseer
