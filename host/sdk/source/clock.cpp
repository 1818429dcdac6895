#include <ctime>
#include <utility>

#include <nvhost/clock.h>

#include "net/loop_io.h"

namespace nv::hosting {

namespace {

class SystemClock : public Clock {
  public:
    timespec wallTime() const override {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        return now;
    }

    std::chrono::steady_clock::time_point steadyTime() const override {
        return std::chrono::steady_clock::now();
    }

    Wait after(boost::asio::io_context& context, std::chrono::milliseconds delay,
               std::function<void()> ready) override {
        auto timer = std::make_shared<net::LoopTimer>(context);
        timer->arm(delay, std::move(ready));
        return timer;
    }
};

}  // namespace

std::shared_ptr<Clock> systemClock() {
    static const auto clock = std::make_shared<SystemClock>();
    return clock;
}

}  // namespace nv::hosting
