#pragma once

#include <nvhost/clock.h>

#include <vector>

namespace support {

/// Time that stands still until a test moves it.
class ManualClock : public nv::hosting::Clock {
  public:
    timespec wallTime() const override { return wall_; }
    std::chrono::steady_clock::time_point steadyTime() const override { return steady_; }
    /// @param context  not used: `advance` is the loop
    Wait after(boost::asio::io_context& context, std::chrono::milliseconds delay,
               std::function<void()> ready) override;

    /// Moves both clocks on and calls, in order of time, what has come up by then.
    void advance(std::chrono::milliseconds by);
    /// Sets the wall clock alone, as a person or a time server would.
    void setWallTime(std::time_t seconds, long nanoseconds = 0) { wall_ = {seconds, nanoseconds}; }

  private:
    struct Pending {
        std::chrono::steady_clock::time_point due;
        std::weak_ptr<std::function<void()>> ready;
    };
    timespec wall_{1'700'000'000, 0};
    std::chrono::steady_clock::time_point steady_{std::chrono::hours(1)};
    std::vector<Pending> pending_;
};

}  // namespace support
