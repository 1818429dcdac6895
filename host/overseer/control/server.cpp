#include "control/server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <csignal>
#include <map>
#include <system_error>
#include <thread>

#include "control/connection.h"
#include "control/service_desk.h"
#include "control/socket_address.h"

// The server's thread, its connections, and the way between it and the I/O thread.
namespace overseer::control {
namespace {

namespace asio = boost::asio;
using Protocol = asio::local::stream_protocol;
using ErrorCode = boost::system::error_code;

constexpr std::chrono::milliseconds kAcceptRetry{100};

class LoopPassage : public Passage, public std::enable_shared_from_this<LoopPassage> {
  public:
    LoopPassage(ControlServices& services, asio::io_context& loop, asio::io_context& server)
        : loop_(loop),
          server_(server),
          desk_(std::make_unique<ServiceDesk>(services, [&loop](std::function<void()> task) {
              asio::post(loop, std::move(task));
          })) {}

    void toServices(std::function<void(ServiceDesk&)> question) override {
        asio::post(loop_, [self = shared_from_this(), question = std::move(question)] {
            if (self->desk_) {
                question(*self->desk_);
            }
        });
    }
    void toServer(std::function<void()> reply) override { asio::post(server_, std::move(reply)); }
    /// On the I/O thread. Nothing reaches the services or the server from there any more.
    void close() { desk_.reset(); }

  private:
    asio::io_context& loop_;
    asio::io_context& server_;
    std::unique_ptr<ServiceDesk> desk_;  ///< I/O thread only
};

bool belongsToOwner(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

/// Makes the folder private and clears the way for a new socket file.
Result<> prepare(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/'));
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        return failure("{}: cannot make the folder: {}", folder,
                       std::generic_category().message(errno));
    }
    if (chmod(folder.c_str(), 0700) != 0) {
        return failure("{}: cannot close the folder to others: {}", folder,
                       std::generic_category().message(errno));
    }
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) {
        return {};
    }
    if (!S_ISSOCK(found.st_mode)) {
        return failure("{}: something that is no socket lies there; move it away", path);
    }
    if (unlink(path.c_str()) != 0) {
        return failure("{}: cannot remove the old socket: {}", path,
                       std::generic_category().message(errno));
    }
    return {};
}

}  // namespace

class Server::Listener {
  public:
    Listener(std::string path, ControlServices& services, asio::io_context& loop,
             const Limits& limits)
        : path_(std::move(path)),
          limits_(limits),
          acceptor_(context_),
          timer_(context_),
          work_(asio::make_work_guard(context_)),
          passage_(std::make_shared<LoopPassage>(services, loop, context_)) {}

    ~Listener() { passage_->close(); }

    Result<> open();
    void run();
    void stop();

  private:
    struct Peer {
        std::shared_ptr<Connection> connection;
        bool served = false;
    };

    void accept();
    void accepted(int socket);
    void acceptWaiting();
    std::optional<Response> reasonToRefuse(int socket) const;
    std::size_t served() const;
    void shutDown();
    void removed(Connection& connection);

    const std::string path_;
    const Limits limits_;
    BodyBudget bodies_{limits_.bodies};
    asio::io_context context_{1};
    Protocol::acceptor acceptor_;
    asio::steady_timer timer_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    std::shared_ptr<LoopPassage> passage_;
    std::map<Connection*, Peer> peers_;
    bool stopping_ = false;
    std::thread thread_;
};

Result<> Server::Listener::open() {
    const auto address = SocketAddress::of(path_);
    if (!address) {
        return tl::unexpected(address.error());
    }
    ErrorCode error;
    acceptor_.open(Protocol(), error);
    if (!error) {
        fcntl(acceptor_.native_handle(), F_SETFD, FD_CLOEXEC);
        acceptor_.bind(Protocol::endpoint(address->text()), error);
    }
    if (!error && chmod(path_.c_str(), 0600) != 0) {
        error = ErrorCode(errno, boost::system::system_category());
    }
    if (!error) {
        acceptor_.listen(asio::socket_base::max_listen_connections, error);
    }
    if (error) {
        return failure("{}: cannot listen there: {}", path_, error.message());
    }
    return {};
}

void Server::Listener::run() {
    accept();
    // Signals are for the thread that has chosen to take them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { context_.run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Server::Listener::accept() {
    acceptor_.async_accept([this](const ErrorCode& error, Protocol::socket socket) {
        if (!error) {
            accepted(socket.release());
        }
        if (stopping_) {
            return;
        }
        if (!error) {
            accept();
            return;
        }
        // Out of descriptors, most likely: the peers wait in the queue until some are free.
        timer_.expires_after(kAcceptRetry);
        timer_.async_wait([this](const ErrorCode& cancelled) {
            if (!cancelled && !stopping_) {
                accept();
            }
        });
    });
}

/// Those who connected before the end are told of it: closing would only reset them.
void Server::Listener::acceptWaiting() {
    ErrorCode error;
    acceptor_.non_blocking(true, error);
    while (!error) {
        Protocol::socket socket(context_);
        acceptor_.accept(socket, error);
        if (!error) {
            accepted(socket.release());
        }
    }
}

void Server::Listener::accepted(int socket) {
    fcntl(socket, F_SETFD, FD_CLOEXEC);
    if (peers_.size() >= limits_.connections + limits_.refusals) {
        ::close(socket);
        return;
    }
    auto refused = reasonToRefuse(socket);
    const bool served = !refused;
    auto connection = makeConnection(
        socket,
        {context_, limits_, bodies_, passage_, [this](Connection& ended) { removed(ended); }},
        std::move(refused));
    peers_[connection.get()] = {connection, served};
    connection->start();
    if (stopping_) {
        connection->stop();
    }
}

std::optional<Response> Server::Listener::reasonToRefuse(int socket) const {
    if (!belongsToOwner(socket)) {
        return refusal(403, "not_owner", "only the owner of this host may control it");
    }
    if (served() >= limits_.connections) {
        return refusal(503, "too_many_connections",
                       fmt::format("{} connections are open already; close one, or try again",
                                   limits_.connections));
    }
    return std::nullopt;
}

std::size_t Server::Listener::served() const {
    std::size_t count = 0;
    for (const auto& [connection, peer] : peers_) {
        count += peer.served ? 1 : 0;
    }
    return count;
}

void Server::Listener::removed(Connection& connection) {
    peers_.erase(&connection);
    if (stopping_ && peers_.empty()) {
        timer_.cancel();
    }
}

void Server::Listener::stop() {
    if (!thread_.joinable()) {
        return;
    }
    passage_->close();
    asio::post(context_, [this] { shutDown(); });
    thread_.join();
}

void Server::Listener::shutDown() {
    stopping_ = true;
    work_.reset();
    ErrorCode ignored;
    unlink(path_.c_str());
    const auto peers = peers_;
    for (const auto& [key, peer] : peers) {
        peer.connection->stop();
    }
    acceptWaiting();
    acceptor_.close(ignored);
    timer_.cancel();
    if (peers_.empty()) {
        return;
    }
    timer_.expires_after(limits_.farewell);
    timer_.async_wait([this](const ErrorCode& cancelled) {
        if (!cancelled) {
            const auto late = peers_;
            for (const auto& [key, peer] : late) {
                peer.connection->abandon();
            }
        }
    });
}

Server::Server(std::unique_ptr<Listener> listener) : listener_(std::move(listener)) {}

Server::~Server() {
    stop();
}

void Server::stop() {
    listener_->stop();
}

Result<std::unique_ptr<Server>> Server::start(const std::string& socketPath,
                                              ControlServices& services,
                                              boost::asio::io_context& loop, const Limits& limits) {
    auto ready = prepare(socketPath);
    auto listener = std::make_unique<Listener>(socketPath, services, loop, limits);
    if (ready) {
        ready = listener->open();
    }
    if (!ready) {
        return inContext("control interface", ready.error());
    }
    listener->run();
    return std::unique_ptr<Server>(new Server(std::move(listener)));
}

}  // namespace overseer::control
