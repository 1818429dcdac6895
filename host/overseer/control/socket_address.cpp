#include "control/socket_address.h"

#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>
#include <cerrno>
#include <system_error>
#include <utility>

namespace overseer::control {

Result<SocketAddress> SocketAddress::of(const std::string& path) {
    if (path.size() < sizeof(sockaddr_un::sun_path)) {
        return SocketAddress(path, -1);
    }
    const std::string folder = path.substr(0, path.rfind('/'));
    const int descriptor = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return failure("{}: cannot open the folder: {}", folder,
                       std::generic_category().message(errno));
    }
    return SocketAddress(fmt::format("/proc/self/fd/{}{}", descriptor, path.substr(folder.size())),
                         descriptor);
}

SocketAddress::SocketAddress(SocketAddress&& other) noexcept
    : text_(std::move(other.text_)), folder_(std::exchange(other.folder_, -1)) {}

SocketAddress& SocketAddress::operator=(SocketAddress&& other) noexcept {
    std::swap(text_, other.text_);
    std::swap(folder_, other.folder_);
    return *this;
}

SocketAddress::~SocketAddress() {
    if (folder_ >= 0) {
        close(folder_);
    }
}

std::string controlSocketPath(const std::string& root) {
    return root + "/run/overseer.sock";
}

}  // namespace overseer::control
