#pragma once

#include <nvhost/clock.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

/// Time that stands still until a test moves it.
class FakeClock : public nv::hosting::Clock {
  public:
    explicit FakeClock(std::time_t wall) : wall_(std::chrono::seconds(wall)) {}

    timespec wallTime() const override {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(wall_);
        return {seconds.count(), (wall_ - seconds).count() * 1'000'000};
    }
    std::chrono::steady_clock::time_point steadyTime() const override { return steady_; }
    Wait after(boost::asio::io_context&, std::chrono::milliseconds delay,
               std::function<void()> ready) override {
        auto wait = std::make_shared<std::function<void()>>(std::move(ready));
        pending_.push_back({steady_ + delay, wait});
        return wait;
    }

    /// Lets time pass; waits that come up are called in order.
    void pass(std::chrono::milliseconds time) {
        const auto end = steady_ + time;
        for (;;) {
            const auto next = std::min_element(
                pending_.begin(), pending_.end(),
                [](const Pending& left, const Pending& right) { return left.due < right.due; });
            if (next == pending_.end() || next->due > end) break;
            const Pending reached = *next;
            pending_.erase(next);
            move(reached.due);
            if (const auto ready = reached.ready.lock()) {
                ++calls_;
                (*ready)();
            }
        }
        move(end);
    }
    /// Lets time pass while the loop is blocked: nothing is called.
    void block(std::chrono::milliseconds time) { move(steady_ + time); }
    /// Sets the wall clock alone, as a person or a time server would.
    void set(std::chrono::seconds by) { wall_ += by; }
    /// How often a wait was over: the wake-ups.
    int calls() const { return calls_; }

  private:
    struct Pending {
        std::chrono::steady_clock::time_point due;
        std::weak_ptr<std::function<void()>> ready;
    };
    void move(std::chrono::steady_clock::time_point to) {
        if (to <= steady_) return;
        wall_ += std::chrono::duration_cast<std::chrono::milliseconds>(to - steady_);
        steady_ = to;
    }

    std::chrono::milliseconds wall_;
    std::chrono::steady_clock::time_point steady_{std::chrono::hours(1)};
    std::vector<Pending> pending_;
    int calls_ = 0;
};
