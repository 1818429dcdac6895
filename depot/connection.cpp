// Bytes in and out of one connection. The socket does not block; every wait is a poll with a
// deadline on the steady clock, on the socket and on the server's stop.
#include "depot/connection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <climits>

namespace depot {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr seconds kHandshakeLimit{10};
constexpr seconds kHeadLimit{10};
constexpr seconds kSendStallLimit{30};
constexpr milliseconds kFarewellLimit{500};
constexpr std::size_t kFarewellBytes = 1024 * 1024;
constexpr milliseconds kIdleSlice{250};

enum class Ready { kSocket, kStop, kTimeout };

Ready waitOn(int socket, short events, int stop, Clock::time_point deadline) {
    while (true) {
        std::array<pollfd, 2> watched{{{socket, events, 0}, {stop, POLLIN, 0}}};
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
        const int wait = static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
        const int count = ::poll(watched.data(), watched.size(), wait);
        if (count < 0 && errno == EINTR) continue;
        // The stop comes first: a client that never pauses must not keep the server up.
        if (count > 0 && watched[1].revents != 0) return Ready::kStop;
        if (count > 0 && watched[0].revents != 0) return Ready::kSocket;
        return Ready::kTimeout;
    }
}

void nameOf(const sockaddr_storage& address, socklen_t length, std::string& name, int& port) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> service{};
    if (::getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host.data(), host.size(),
                      service.data(), service.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return;
    name = host.data();
    port = std::atoi(service.data());
}

}  // namespace

Connection::Connection(FileDescriptor socket, SSL_CTX* tls, int stop)
    : socket_(std::move(socket)), encrypted_(tls != nullptr), stop_(stop) {
    const int yes = 1;
    ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (!encrypted_) return;
    session_.reset(SSL_new(tls));
    if (session_) SSL_set_fd(session_.get(), socket_.get());
}

Connection::~Connection() {
    if (!session_ || broken_ || SSL_is_init_finished(session_.get()) == 0) return;
    ERR_clear_error();
    SSL_shutdown(session_.get());
}

bool Connection::handshake() {
    if (!encrypted_) return true;
    broken_ = true;
    if (!session_) return false;
    const Deadline deadline = Clock::now() + kHandshakeLimit;
    while (true) {
        ERR_clear_error();
        const int result = SSL_accept(session_.get());
        if (result == 1) break;
        if (!waitAfter(result, deadline, true)) return false;
    }
    broken_ = false;
    return true;
}

bool Connection::waitFor(short events, Deadline deadline, bool endAtStop) const {
    // poll leaves out descriptors that are negative
    return waitOn(socket_.get(), events, endAtStop ? stop_ : -1, deadline) == Ready::kSocket;
}

bool Connection::waitAfter(int result, Deadline deadline, bool endAtStop) const {
    switch (SSL_get_error(session_.get(), result)) {
        case SSL_ERROR_WANT_READ:
            return waitFor(POLLIN, deadline, endAtStop);
        case SSL_ERROR_WANT_WRITE:
            return waitFor(POLLOUT, deadline, endAtStop);
        default:
            return false;
    }
}

bool Connection::waitForRequest(const std::function<milliseconds()>& idleLimit) {
    if (!received_.empty() || (session_ && SSL_pending(session_.get()) > 0)) return true;
    const auto begun = Clock::now();
    while (true) {
        const auto end = begun + idleLimit();
        const auto now = Clock::now();
        if (now >= end) return false;
        const Ready ready = waitOn(socket_.get(), POLLIN, stop_, std::min(end, now + kIdleSlice));
        if (ready != Ready::kTimeout) return ready == Ready::kSocket;
    }
}

Connection::HeadResult Connection::readHead(std::string& head) {
    const Deadline deadline = Clock::now() + kHeadLimit;
    std::array<char, 16 * 1024> buffer{};
    std::size_t searched = 0;
    while (true) {
        // Blank lines before a request are a habit of old clients.
        while (received_.starts_with("\r\n")) received_.erase(0, 2);
        const std::size_t lineEnd = received_.find('\n');
        if (std::min(lineEnd, received_.size()) > kRequestLineLimit)
            return HeadResult::kLineTooLong;
        const std::size_t end = received_.find("\r\n\r\n", searched);
        if (std::min(end, received_.size()) > kRequestHeadLimit) return HeadResult::kTooLarge;
        if (end != std::string::npos) {
            head = received_.substr(0, end + 4);
            received_.erase(0, end + 4);
            return HeadResult::kComplete;
        }
        searched = received_.size() < 4 ? 0 : received_.size() - 3;
        const ssize_t count = receive(buffer.data(), buffer.size(), deadline);
        if (count <= 0) return HeadResult::kClosed;
        received_.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

ssize_t Connection::receive(char* bytes, size_t size, Deadline deadline) {
    while (true) {
        if (session_) {
            ERR_clear_error();
            const int count = SSL_read(session_.get(), bytes, static_cast<int>(size));
            if (count > 0) return count;
            if (!waitAfter(count, deadline, true)) break;
        } else {
            const ssize_t count = ::recv(socket_.get(), bytes, size, 0);
            if (count > 0) return count;
            const bool again = count < 0 && (errno == EAGAIN || errno == EINTR);
            if (!again || !waitFor(POLLIN, deadline, true)) break;
        }
    }
    broken_ = true;
    return -1;
}

ssize_t Connection::sendSome(const char* bytes, size_t size, Deadline deadline) {
    while (true) {
        if (session_) {
            ERR_clear_error();
            const int count =
                SSL_write(session_.get(), bytes, static_cast<int>(std::min<size_t>(size, INT_MAX)));
            if (count > 0) return count;
            if (!waitAfter(count, deadline, true)) return -1;
        } else {
            const ssize_t count = ::send(socket_.get(), bytes, size, MSG_NOSIGNAL);
            if (count >= 0) return count;
            const bool again = errno == EAGAIN || errno == EINTR;
            if (!again || !waitFor(POLLOUT, deadline, true)) return -1;
        }
    }
}

void Connection::offer(std::string text) {
    offered_ = std::move(text);
    offeredTaken_ = 0;
}

ssize_t Connection::read(char* bytes, size_t size) {
    const size_t count = offered_.copy(bytes, size, offeredTaken_);
    offeredTaken_ += count;
    return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* bytes, size_t size) {
    size_t sent = 0;
    while (sent < size && !broken_) {
        const ssize_t count = sendSome(bytes + sent, size - sent, Clock::now() + kSendStallLimit);
        if (count < 0)
            broken_ = true;
        else
            sent += static_cast<size_t>(count);
    }
    return broken_ ? -1 : static_cast<ssize_t>(sent);
}

void Connection::finish() {
    if (broken_) return;
    if (session_) {
        ERR_clear_error();
        SSL_shutdown(session_.get());
    }
    ::shutdown(socket_.get(), SHUT_WR);
    broken_ = true;
    const Deadline deadline = Clock::now() + kFarewellLimit;
    std::array<char, 16 * 1024> buffer{};
    for (std::size_t total = 0; total < kFarewellBytes;) {
        if (!waitFor(POLLIN, deadline, true)) return;
        const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (count <= 0) return;
        total += static_cast<std::size_t>(count);
    }
}

void Connection::get_remote_ip_and_port(std::string& address, int& port) const {
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    if (::getpeername(socket_.get(), reinterpret_cast<sockaddr*>(&peer), &length) == 0)
        nameOf(peer, length, address, port);
}

void Connection::get_local_ip_and_port(std::string& address, int& port) const {
    sockaddr_storage own{};
    socklen_t length = sizeof own;
    if (::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own), &length) == 0)
        nameOf(own, length, address, port);
}

}  // namespace depot
