#include "running_server.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <filesystem>
#include <future>
#include <thread>

#include "control/server.h"
#include "control/socket_address.h"

namespace overseer::control {

TemporaryRoot::TemporaryRoot(const std::string& extra) {
    std::string pattern = (std::filesystem::temp_directory_path() / "control-XXXXXX").string();
    top_ = mkdtemp(pattern.data());
    path_ = top_ + extra;
    std::filesystem::create_directories(path_);
}

TemporaryRoot::~TemporaryRoot() {
    std::filesystem::remove_all(top_);
}

struct RunningServer::Loop {
    boost::asio::io_context context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work =
        boost::asio::make_work_guard(context);
    FakeServices services;
    std::unique_ptr<Server> server;
    std::thread thread;
};

RunningServer::RunningServer(std::string root, const Limits& limits)
    : root_(std::move(root)), limits_(limits), loop_(std::make_unique<Loop>()) {
    loop_->thread = std::thread([this] { loop_->context.run(); });
    startAgain();
}

RunningServer::~RunningServer() {
    stop();
    loop_->work.reset();
    loop_->thread.join();
}

void RunningServer::onLoop(const std::function<void(FakeServices&)>& task) {
    std::promise<void> done;
    boost::asio::post(loop_->context, [&] {
        task(loop_->services);
        done.set_value();
    });
    done.get_future().get();
}

void RunningServer::stop() {
    onLoop([this](FakeServices&) { loop_->server.reset(); });
}

void RunningServer::startAgain() {
    onLoop([this](FakeServices& services) {
        auto started = Server::start(controlSocketPath(root_), services, loop_->context, limits_);
        ASSERT_TRUE(started) << started.error().message;
        loop_->server = std::move(*started);
    });
}

RawPeer::RawPeer(const std::string& root) : socket_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    const auto path = SocketAddress::of(controlSocketPath(root));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path->text().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << std::strerror(errno);
}

RawPeer::RawPeer(RawPeer&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)), received_(std::move(other.received_)) {}

RawPeer::~RawPeer() {
    if (socket_ >= 0) {
        close(socket_);
    }
}

void RawPeer::send(const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const auto count = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;  // the server has had enough, which the answer tells
        }
        sent += static_cast<std::size_t>(count);
    }
}

bool RawPeer::receive() {
    pollfd wait{socket_, POLLIN, 0};
    if (poll(&wait, 1, 10'000) != 1) {
        ADD_FAILURE() << "the server keeps its peer waiting; so far: " << received_;
        return false;
    }
    char bytes[65'536];
    const auto count = recv(socket_, bytes, sizeof bytes, 0);
    if (count > 0) {
        received_.append(bytes, static_cast<std::size_t>(count));
    }
    return count > 0;
}

std::string RawPeer::readToEnd() {
    while (receive()) {
    }
    return std::exchange(received_, {});
}

std::string RawPeer::readUntil(const std::string& text) {
    std::size_t end = received_.find(text);
    while (end == std::string::npos) {
        const std::size_t seen = received_.size();
        if (!receive()) {
            return std::exchange(received_, {});
        }
        end = received_.find(text, seen - std::min(seen, text.size()));
    }
    const std::string head = received_.substr(0, end + text.size());
    received_.erase(0, head.size());
    return head;
}

std::string exchange(const std::string& root, const std::string& method, const std::string& target,
                     const std::string& body) {
    RawPeer peer(root);
    peer.send(
        fmt::format("{} {} HTTP/1.1\r\nHost: h\r\nConnection: close\r\n"
                    "Content-Length: {}\r\n\r\n{}",
                    method, target, body.size(), body));
    return peer.readToEnd();
}

std::string exchangeOnceServed(const std::string& root) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        std::string reply = exchange(root, "GET", "/host");
        if (reply.find("too_many_connections") == std::string::npos ||
            std::chrono::steady_clock::now() > deadline) {
            return reply;
        }
    }
}

}  // namespace overseer::control
