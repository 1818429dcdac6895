// The only source of the network layer that knows Asio's timers and descriptors. libcurl's side of
// the loop (curl_multi) and the clock are built on it.
#include "loop_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <utility>

namespace nv::net {

void postTo(boost::asio::io_context& context, std::function<void()> function) {
    boost::asio::post(context, std::move(function));
}

bool loopStopped(const boost::asio::io_context& context) {
    return context.stopped();
}

void prepareLoop(boost::asio::io_context& context) {
    const boost::asio::steady_timer timer(context);
    const boost::asio::posix::stream_descriptor descriptor(context);
}

struct LoopTimer::State {
    explicit State(boost::asio::io_context& context) : timer(context) {}
    boost::asio::steady_timer timer;
    std::uint64_t generation = 0;  // a wait of an earlier one may still arrive, with success
    std::function<void()> ready;
};

LoopTimer::LoopTimer(boost::asio::io_context& context) : state_(std::make_shared<State>(context)) {}

LoopTimer::~LoopTimer() {
    cancel();
}

void LoopTimer::arm(std::chrono::milliseconds delay, std::function<void()> ready) {
    const std::uint64_t generation = ++state_->generation;
    const auto previous = std::exchange(state_->ready, std::move(ready));
    state_->timer.expires_after(delay);
    state_->timer.async_wait(
        [weak = std::weak_ptr(state_), generation](const boost::system::error_code&) {
            const auto state = weak.lock();
            if (!state || state->generation != generation) return;
            ++state->generation;
            const auto function = std::exchange(state->ready, nullptr);
            function();
        });
}

void LoopTimer::cancel() {
    ++state_->generation;
    const auto previous = std::exchange(state_->ready, nullptr);
    state_->timer.cancel();
}

struct SocketWatch::Descriptor {
    explicit Descriptor(boost::asio::io_context& context) : stream(context) {}
    boost::asio::posix::stream_descriptor stream;
};

SocketWatch::SocketWatch(std::unique_ptr<Descriptor> descriptor, Ready ready)
    : descriptor_(std::move(descriptor)), ready_(std::move(ready)) {}

SocketWatch::~SocketWatch() = default;

std::shared_ptr<SocketWatch> SocketWatch::create(boost::asio::io_context& context, int descriptor,
                                                 Ready ready) {
    const int duplicate = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    if (duplicate < 0) return nullptr;
    auto owned = std::make_unique<Descriptor>(context);
    boost::system::error_code error;
    owned->stream.assign(duplicate, error);
    if (error) {
        ::close(duplicate);
        return nullptr;
    }
    return std::shared_ptr<SocketWatch>(new SocketWatch(std::move(owned), std::move(ready)));
}

void SocketWatch::want(bool read, bool write) {
    wanted_[0] = read;
    wanted_[1] = write;
    arm();
}

void SocketWatch::close() {
    wanted_[0] = wanted_[1] = false;
    boost::system::error_code ignored;
    descriptor_->stream.close(ignored);
}

void SocketWatch::arm() {
    if (!descriptor_->stream.is_open()) return;
    for (const bool write : {false, true}) {
        if (wanted_[write] && !waiting_[write]) wait(write);
    }
}

void SocketWatch::wait(bool write) {
    using Stream = boost::asio::posix::stream_descriptor;
    waiting_[write] = true;
    descriptor_->stream.async_wait(
        write ? Stream::wait_write : Stream::wait_read,
        [weak = weak_from_this(), write](const boost::system::error_code& error) {
            if (const auto self = weak.lock()) {
                self->waiting_[write] = false;
                if (error != boost::asio::error::operation_aborted) {
                    self->waited(write, static_cast<bool>(error));
                }
            }
        });
}

void SocketWatch::waited(bool write, bool failed) {
    if (!descriptor_->stream.is_open() || !wanted_[write]) return;
    ready_(failed ? Event::kError : write ? Event::kWritable : Event::kReadable);
    arm();
}

}  // namespace nv::net
