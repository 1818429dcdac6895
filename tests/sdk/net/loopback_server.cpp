#include "loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>

namespace nv::test {

namespace {

void raise(int event) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(event, &one, sizeof one);
}

int listenOnLoopback(int& port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0) std::abort();
    if (::listen(socket, 512) != 0) std::abort();
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
    return socket;
}

}  // namespace

std::string Request::header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

void Connection::send(const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size() && !cut_) {
        const std::size_t left = bytes.size() - sent;
        const auto count =
            tls_ ? SSL_write(tls_.get(), bytes.data() + sent, static_cast<int>(left))
                 : static_cast<int>(::send(socket_, bytes.data() + sent, left, MSG_NOSIGNAL));
        if (count <= 0) cut_ = true;
        sent += static_cast<std::size_t>(std::max(0, count));
    }
}

void Connection::answer(int status, const std::string& body, const std::string& headers) {
    send("HTTP/1.1 " + std::to_string(status) +
         " X\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body);
}

void Connection::cut() {
    cut_ = true;
    ::shutdown(socket_, SHUT_RDWR);
}

void Connection::hold() {
    server_.waitForRelease(socket_);
}

void Connection::holdFor(std::chrono::milliseconds time) {
    server_.waitForRelease(socket_, static_cast<int>(time.count()));
}

bool Connection::shakeHands() {
    if (!server_.tls_) return true;
    tls_.reset(SSL_new(server_.tls_.get()), &SSL_free);
    SSL_set_fd(tls_.get(), socket_);
    return SSL_accept(tls_.get()) == 1;
}

std::size_t Connection::readSome(char* buffer, std::size_t size) {
    const auto count = tls_ ? SSL_read(tls_.get(), buffer, static_cast<int>(size))
                            : static_cast<int>(::recv(socket_, buffer, size, 0));
    return static_cast<std::size_t>(std::max(0, count));
}

std::optional<Request> Connection::read() {
    std::size_t end = 0;
    while ((end = unread_.find("\r\n\r\n")) == std::string::npos) {
        char buffer[4096];
        const std::size_t count = readSome(buffer, sizeof buffer);
        if (count == 0) return std::nullopt;
        unread_.append(buffer, count);
    }
    std::istringstream lines(unread_.substr(0, end + 2));
    unread_.erase(0, end + 4);
    Request request;
    lines >> request.method >> request.target;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        const std::size_t colon = line.find(": ");
        if (colon == std::string::npos) continue;
        std::string name = line.substr(0, colon);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        request.headers[name] = line.substr(colon + 2, line.size() - colon - 3);
    }
    return request;
}

LoopbackServer::LoopbackServer(std::optional<Identity> identity, bool holdHandshakes,
                               int highestTls)
    : holdHandshakes_(holdHandshakes),
      listener_(listenOnLoopback(port_)),
      release_(::eventfd(0, EFD_CLOEXEC)),
      ending_(::eventfd(0, EFD_CLOEXEC)) {
    std::signal(SIGPIPE, SIG_IGN);  // as the host does
    if (identity) {
        tls_.reset(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
        SSL_CTX_set_max_proto_version(tls_.get(), highestTls);
        SSL_CTX_use_certificate(tls_.get(), identity->certificate.get());
        SSL_CTX_use_PrivateKey(tls_.get(), identity->key.get());
        SSL_CTX_set_alpn_select_cb(tls_.get(), &LoopbackServer::chooseProtocol, this);
    }
    acceptor_ = std::thread([this] { accept(); });
}

LoopbackServer::~LoopbackServer() {
    raise(ending_);
    acceptor_.join();
    for (std::thread& thread : threads_) thread.join();
    for (const int descriptor : {listener_, release_, ending_}) ::close(descriptor);
}

void LoopbackServer::on(const std::string& path, Behaviour behaviour) {
    const std::lock_guard lock(mutex_);
    behaviours_[path] = std::move(behaviour);
}

std::string LoopbackServer::url(const std::string& target) const {
    return (tls_ ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port_) + target;
}

void LoopbackServer::letGo() {
    raise(release_);
}

std::vector<Request> LoopbackServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

int LoopbackServer::connections() const {
    const std::lock_guard lock(mutex_);
    return made_;
}

int LoopbackServer::mostAtOnce() const {
    const std::lock_guard lock(mutex_);
    return most_;
}

bool LoopbackServer::http2WasOffered() const {
    const std::lock_guard lock(mutex_);
    return http2Offered_;
}

void LoopbackServer::accept() {
    for (;;) {
        pollfd events[2] = {{listener_, POLLIN, 0}, {ending_, POLLIN, 0}};
        ::poll(events, 2, -1);
        if (events[1].revents != 0) return;
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) continue;
        const timeval limit{10, 0};  // a silent client must not keep the server from its end
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        const std::lock_guard lock(mutex_);
        ++made_;
        most_ = std::max(most_, ++open_);
        threads_.emplace_back([this, socket] { serve(socket); });
    }
}

void LoopbackServer::serve(int socket) {
    {
        Connection connection(*this, socket);
        if (holdHandshakes_) waitForRelease(socket);
        if (connection.shakeHands()) serveRequests(connection);
    }
    const std::lock_guard lock(mutex_);
    --open_;
    ::close(socket);
}

void LoopbackServer::serveRequests(Connection& connection) {
    while (!connection.cut_) {
        pollfd events[2] = {{connection.socket_, POLLIN, 0}, {ending_, POLLIN, 0}};
        const bool buffered = connection.tls_ && SSL_has_pending(connection.tls_.get()) != 0;
        if (!buffered && connection.unread_.empty()) ::poll(events, 2, -1);
        if (events[1].revents != 0) return;
        const auto request = connection.read();
        if (!request) return;
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(*request);
        }
        behaviourOf(request->target)(connection, *request);
    }
}

void LoopbackServer::waitForRelease(int socket, int milliseconds) {
    pollfd events[3] = {{socket, POLLRDHUP, 0}, {release_, POLLIN, 0}, {ending_, POLLIN, 0}};
    ::poll(events, 3, milliseconds);
}

LoopbackServer::Behaviour LoopbackServer::behaviourOf(const std::string& target) {
    const std::lock_guard lock(mutex_);
    const auto found = behaviours_.find(target.substr(0, target.find('?')));
    if (found != behaviours_.end()) return found->second;
    return [](Connection& connection, const Request&) { connection.answer(404, "no such path"); };
}

int LoopbackServer::chooseProtocol(SSL*, const unsigned char** out, unsigned char* outSize,
                                   const unsigned char* in, unsigned int inSize, void* self) {
    auto& server = *static_cast<LoopbackServer*>(self);
    const std::string offered(reinterpret_cast<const char*>(in), inSize);
    const std::lock_guard lock(server.mutex_);
    server.http2Offered_ = server.http2Offered_ || offered.find("\x02h2") != std::string::npos;
    static const unsigned char kHttp1[] = "\x08http/1.1";
    const int chosen =
        SSL_select_next_proto(const_cast<unsigned char**>(out), outSize, kHttp1, 9, in, inSize);
    return chosen == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

}  // namespace nv::test
