#include "root/root_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <cerrno>

#include "common/system_failure.h"

namespace overseer {
namespace {

std::string holderOf(int file) {
    char text[32] = {};
    const ssize_t count = ::pread(file, text, sizeof text - 1, 0);
    std::string holder(text, count > 0 ? static_cast<std::size_t>(count) : 0);
    while (!holder.empty() && holder.back() == '\n') holder.pop_back();
    return holder.empty() ? "of unknown id" : holder;
}

bool record(int file) {
    const std::string text = std::to_string(::getpid()) + '\n';
    return ::ftruncate(file, 0) == 0 &&
           ::pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

}  // namespace

Result<RootLock> RootLock::acquire(const ControllerRoot& root) {
    const std::string name = root.lockFile().string();
    nv::hosting::Descriptor file(
        ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.isOpen()) return systemFailure("the lock " + name + " cannot be opened", errno);
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) return systemFailure("the lock " + name, errno);
        return failure("the controller root {} is in use by process {}; stop it first",
                       root.path().string(), holderOf(file.get()));
    }
    if (!record(file.get())) return systemFailure("the lock " + name + " cannot be written", errno);
    return RootLock(std::move(file));
}

}  // namespace overseer
