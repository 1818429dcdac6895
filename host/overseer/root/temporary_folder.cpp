#include "root/temporary_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

#include "common/log.h"
#include "common/system_failure.h"

namespace overseer {
namespace {

bool isOwnFolder(const boost::filesystem::path& folder) {
    struct stat named {};
    struct stat own {};
    return ::lstat(folder.c_str(), &named) == 0 && ::stat(".", &own) == 0 &&
           named.st_dev == own.st_dev && named.st_ino == own.st_ino;
}

Result<> makeAnew(const boost::filesystem::path& folder) {
    if (::mkdir(folder.c_str(), 0700) != 0) return systemFailure(folder.string(), errno);
    if (::chdir(folder.c_str()) != 0) return systemFailure(folder.string(), errno);
    return {};
}

}  // namespace

TemporaryFolder::TemporaryFolder(boost::filesystem::path folder, nv::hosting::Descriptor before)
    : folder_(std::move(folder)), before_(std::move(before)) {}

TemporaryFolder::~TemporaryFolder() {
    // A program that executes itself again finds what its arguments name.
    if (before_.isOpen()) static_cast<void>(::fchdir(before_.get()));
}

Result<std::unique_ptr<TemporaryFolder>> TemporaryFolder::enter(const ControllerRoot& root) {
    nv::hosting::Descriptor before(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (::chdir(root.temporary().c_str()) != 0) {
        return systemFailure(root.temporary().string(), errno);
    }
    return std::unique_ptr<TemporaryFolder>(
        new TemporaryFolder(root.temporary(), std::move(before)));
}

void TemporaryFolder::keep() {
    if (isOwnFolder(folder_)) return;
    const Result<> made = makeAnew(folder_);
    if (made) {
        log::warn(
            fmt::format("{} was removed while the host runs, and was made anew; downloads "
                        "that were under way are lost",
                        folder_.string()));
    } else if (!lost_) {
        log::error(
            fmt::format("nothing can be downloaded: {}; remove what lies there, the folder "
                        "is made anew",
                        made.error().message));
    }
    lost_ = !made;
}

}  // namespace overseer
