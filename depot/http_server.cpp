// Accepts connections and serves requests on them. The HTTP library formats the answers; accepting,
// waiting, bounds and the end of a connection are decided here, because the library's own server
// looks for idle connections by polling, stops late and reads lines of any length into memory.
#include "depot/http_server.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <system_error>

#include "depot/answer.h"
#include "depot/connection.h"
#include "depot/request_handler.h"

namespace depot {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kThreads = 64;
constexpr std::size_t kWaitingLimit = 1024;
constexpr milliseconds kIdleLimit{60'000};
constexpr milliseconds kIdleLimitWhileOthersWait{1'000};
constexpr int kRequestsWhileOthersWait = 100;
constexpr milliseconds kPauseWithoutDescriptors{50};

/// The threads that serve connections, and how many connections wait for one of them.
class ConnectionThreads {
  public:
    ~ConnectionThreads() { threads_.shutdown(); }

    void add(std::function<void()> serve) {
        ++waiting_;
        threads_.enqueue([this, serve = std::move(serve)] {
            --waiting_;
            serve();
        });
    }
    std::size_t waiting() const { return waiting_; }

  private:
    std::atomic<std::size_t> waiting_{0};
    httplib::ThreadPool threads_{kThreads};
};

/// The library's server without its sockets: one request from a stream, one answer to it.
class MessageServer : public httplib::Server {
  public:
    explicit MessageServer(int listening) { svr_sock_ = listening; }

    /// Answers being written end early from now on.
    void cutOff() { svr_sock_ = INVALID_SOCKET; }

    /// @return whether the connection can serve another request
    bool answer(Connection& connection, const RequestHead& head, bool close) {
        // The library must neither decode the target (it does so leniently) nor act on ranges,
        // bodies and expectations: it gets a bare request, and the handler what was really sent.
        connection.offer(head.method + " / " + head.version + "\r\n" + connectionField(head) +
                         "\r\n");
        bool closed = close;
        const bool written =
            process_request(connection, close, closed, [&head](httplib::Request& request) {
                request.target = head.target;
                for (const char* name : {"Range", "If-Range"}) {
                    if (const std::string* value = head.field(name))
                        request.headers.emplace(name, *value);
                }
            });
        return written && !closed;
    }

  private:
    static std::string connectionField(const RequestHead& head) {
        const std::string* wish = head.field("Connection");
        if (wish == nullptr) return {};
        std::string lower = *wish;
        for (char& character : lower)
            character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        if (lower.find("close") != std::string::npos) return "Connection: close\r\n";
        return lower == "keep-alive" ? "Connection: Keep-Alive\r\n" : "";
    }
};

std::string logLine(const httplib::Request& request, const httplib::Response& response) {
    std::string target = request.target;
    for (char& character : target) {
        if (character <= 0x20 || character == 0x7F) character = '?';
    }
    const std::string length = response.get_header_value("Content-Length");
    return request.remote_addr + " " + request.method + " " + target + " " +
           std::to_string(response.status) + " " + (length.empty() ? "-" : length);
}

/// Serves the connections of one run of the server.
class Session {
  public:
    Session(const HttpServer::Settings& settings, Catalogue& catalogue, SSL_CTX* tls, int listening,
            int stop)
        : tls_(tls), stop_(stop), messages_(listening) {
        messages_.set_keep_alive_timeout(kIdleLimit.count() / 1000);
        messages_.set_keep_alive_max_count(1'000'000);
        messages_.set_pre_routing_handler(
            [&catalogue](const httplib::Request& request, httplib::Response& response) {
                handleRequest(catalogue, request, response);
                return httplib::Server::HandlerResponse::Handled;
            });
        if (!settings.accessLog) return;
        messages_.set_logger([log = settings.accessLog](const httplib::Request& request,
                                                        const httplib::Response& response) {
            log(logLine(request, response));
        });
    }
    ~Session() { messages_.cutOff(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void add(FileDescriptor socket) {
        if (threads_.waiting() >= kWaitingLimit) return;
        auto shared = std::make_shared<FileDescriptor>(std::move(socket));
        threads_.add([this, shared] { serve(std::move(*shared)); });
    }

  private:
    void serve(FileDescriptor socket) {
        Connection connection(std::move(socket), tls_, stop_);
        if (!connection.handshake()) return;
        const auto idleLimit = [this] {
            return threads_.waiting() > 0 ? kIdleLimitWhileOthersWait : kIdleLimit;
        };
        for (int served = 0; connection.waitForRequest(idleLimit); ++served) {
            const bool close = served >= kRequestsWhileOthersWait && threads_.waiting() > 0;
            if (!serveRequest(connection, close)) return;
        }
    }

    bool serveRequest(Connection& connection, bool close) {
        std::string text;
        switch (connection.readHead(text)) {
            case Connection::HeadResult::kClosed:
                return false;
            case Connection::HeadResult::kLineTooLong:
                return refuse(connection, 414, "URI Too Long");
            case Connection::HeadResult::kTooLarge:
                return refuse(connection, 431, "Request Header Fields Too Large");
            case Connection::HeadResult::kComplete:
                break;
        }
        const auto head = parseRequestHead(text);
        if (!head) return refuse(connection, 400, "Bad Request");
        const bool last = close || head->announcesBody();
        if (messages_.answer(connection, *head, last)) return true;
        if (head->announcesBody()) connection.finish();
        return false;
    }

    /// Answers what is no request that could be handed on; the connection ends with it.
    static bool refuse(Connection& connection, int status, const std::string& reason) {
        const Answer answer = htmlError(status, reason);
        const std::string text = "HTTP/1.1 " + std::to_string(status) + " " + reason +
                                 "\r\nConnection: close\r\nContent-Type: " + answer.contentType +
                                 "\r\nContent-Length: " + std::to_string(answer.body.size()) +
                                 "\r\n\r\n" + answer.body;
        connection.write(text.data(), text.size());
        connection.finish();
        return false;
    }

    SSL_CTX* const tls_;
    const int stop_;
    MessageServer messages_;
    ConnectionThreads threads_;  // last: its threads end before what they use
};

bool outOfDescriptors(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// What accept(2) answers for a connection that came to nothing, which is no fault of the server.
bool isPassing(int error) {
    return error == EAGAIN || error == EINTR || error == ECONNABORTED || error == EPROTO ||
           error == EPERM || error == ENETDOWN || error == EHOSTUNREACH || error == ENETUNREACH ||
           error == ETIMEDOUT;
}

}  // namespace

Result<std::unique_ptr<HttpServer>> HttpServer::open(Settings settings, Catalogue& catalogue) {
    TlsContext tls;
    if (settings.tls) {
        auto made = makeTlsContext(settings.tls->certificateFile, settings.tls->keyFile);
        if (!made) return tl::make_unexpected(made.error());
        tls = std::move(*made);
    }
    auto listener = listenOn(settings.address, settings.port);
    if (!listener) return tl::make_unexpected(listener.error());
    return std::unique_ptr<HttpServer>(
        new HttpServer(std::move(settings), catalogue, std::move(*listener), std::move(tls)));
}

std::string HttpServer::url() const {
    return (tls_ ? "https://" : "http://") + addressInUrl(settings_.address) + ":" +
           std::to_string(listener_.port);
}

Result<void> HttpServer::run(int stop) {
    // Closed when this returns, so that late clients are refused instead of left waiting.
    const FileDescriptor listener = std::move(listener_.socket);
    const int listening = listener.get();
    Session session(settings_, catalogue_, tls_.get(), listening, stop);
    while (true) {
        std::array<pollfd, 2> watched{{{stop, POLLIN, 0}, {listening, POLLIN, 0}}};
        if (::poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR)
            return failure(std::string("cannot wait for connections: ") +
                           std::generic_category().message(errno));
        if (watched[0].revents != 0) return {};
        FileDescriptor socket(::accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (socket) {
            session.add(std::move(socket));
        } else if (outOfDescriptors(errno)) {
            ::poll(watched.data(), 1, static_cast<int>(kPauseWithoutDescriptors.count()));
        } else if (!isPassing(errno)) {
            return failure(std::string("cannot accept connections: ") +
                           std::generic_category().message(errno));
        }
    }
}

}  // namespace depot
