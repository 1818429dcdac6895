#pragma once

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>

#include <nv/asio_forward.h>

namespace nv::hosting {

/// Time, as everything in the host takes it: real in the host, moved by hand in tests.
class Clock {
  public:
    /// A wait under way; dropping the handle cancels it, and then `ready` is not called any more.
    using Wait = std::shared_ptr<void>;

    virtual ~Clock() = default;
    /// Since the epoch, UTC.
    virtual timespec wallTime() const = 0;
    virtual std::chrono::steady_clock::time_point steadyTime() const = 0;
    /// Calls `ready` on the loop, never inline, once `delay` has passed on the steady clock.
    virtual Wait after(boost::asio::io_context& context, std::chrono::milliseconds delay,
                       std::function<void()> ready) = 0;
};

/// The machine's clock.
std::shared_ptr<Clock> systemClock();

}  // namespace nv::hosting
