#include "manual_clock.h"

#include <algorithm>

namespace support {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

timespec later(timespec time, std::chrono::nanoseconds by) {
    const std::int64_t nanoseconds = time.tv_nsec + by.count() % kNanosecondsPerSecond;
    return {time.tv_sec + by.count() / kNanosecondsPerSecond + nanoseconds / kNanosecondsPerSecond,
            nanoseconds % kNanosecondsPerSecond};
}

}  // namespace

nv::hosting::Clock::Wait ManualClock::after(boost::asio::io_context&,
                                            std::chrono::milliseconds delay,
                                            std::function<void()> ready) {
    auto wait = std::make_shared<std::function<void()>>(std::move(ready));
    pending_.push_back({steady_ + delay, wait});
    return wait;
}

void ManualClock::advance(std::chrono::milliseconds by) {
    const auto end = steady_ + by;
    const auto isEarlier = [](const Pending& a, const Pending& b) { return a.due < b.due; };
    while (!pending_.empty()) {
        const auto next = std::min_element(pending_.begin(), pending_.end(), isEarlier);
        if (next->due > end) break;
        const auto reached = std::max(next->due, steady_);
        const auto ready = next->ready.lock();
        pending_.erase(next);
        wall_ = later(wall_, reached - steady_);
        steady_ = reached;
        if (ready) (*ready)();
    }
    wall_ = later(wall_, end - steady_);
    steady_ = end;
}

}  // namespace support
