#include "event_loop.h"

#include <boost/asio/io_context.hpp>

namespace support {

EventLoop::EventLoop() : context_(std::make_unique<boost::asio::io_context>()) {}

EventLoop::~EventLoop() = default;

void EventLoop::runReady() {
    context_->restart();
    context_->poll();
}

}  // namespace support
