#include "depot/listener.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <system_error>

namespace depot {
namespace {

constexpr int kBacklog = 512;

int boundPort(int socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

}  // namespace

Result<Listener> listenOn(const std::string& address, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const std::string where = addressInUrl(address) + ":" + std::to_string(port);
    const int code = ::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (code != 0)
        return failure(address + " is no numeric address to listen on: " + ::gai_strerror(code));
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, &::freeaddrinfo);
    FileDescriptor socket(
        ::socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int yes = 1;
    const bool listening =
        socket && ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
        ::bind(socket.get(), found->ai_addr, found->ai_addrlen) == 0 &&
        ::listen(socket.get(), kBacklog) == 0;
    if (!listening)
        return failure("cannot listen on " + where + ": " + std::generic_category().message(errno));
    const int bound = boundPort(socket.get());
    return Listener{std::move(socket), bound};
}

std::string addressInUrl(const std::string& address) {
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

}  // namespace depot
