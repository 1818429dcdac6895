#pragma once

#include <nv/asio_forward.h>

#include <memory>

namespace support {

/// The loop of a test, without Asio's headers in the test.
class EventLoop {
  public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    boost::asio::io_context& context() { return *context_; }
    /// Runs what is ready, and what that makes ready; waits for nothing.
    void runReady();

  private:
    std::unique_ptr<boost::asio::io_context> context_;
};

}  // namespace support
