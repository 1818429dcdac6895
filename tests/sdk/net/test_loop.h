#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nv/asio_forward.h>
#include <nvhost/clock.h>

namespace nv::test {

/// An event loop for one test, run by the test itself; a test whose loop hangs fails.
class TestLoop {
  public:
    TestLoop();
    ~TestLoop();
    TestLoop(const TestLoop&) = delete;
    TestLoop& operator=(const TestLoop&) = delete;

    boost::asio::io_context& context();
    /// Runs until `done` holds; fails the test after `limit`. What handlers throw is kept.
    void runUntil(const std::function<bool()>& done,
                  std::chrono::seconds limit = std::chrono::seconds(15));
    /// Runs what is due now.
    void runReady();
    void stop();
    /// Handlers that were run so far.
    std::size_t handlersRun() const;
    const std::vector<std::string>& thrown() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Time that only moves when told.
class ManualClock : public hosting::Clock {
  public:
    timespec wallTime() const override { return {1'700'000'000 + elapsed().count(), 0}; }
    std::chrono::steady_clock::time_point steadyTime() const override { return now_; }
    Wait after(boost::asio::io_context& context, std::chrono::milliseconds delay,
               std::function<void()> ready) override;

    /// Delays of the waits under way.
    std::vector<std::chrono::milliseconds> waits() const;
    /// Moves on to the end of the earliest wait and puts its call on the loop.
    void finishWait();

  private:
    struct Pending {
        boost::asio::io_context* context;
        std::chrono::milliseconds delay;
        std::weak_ptr<std::function<void()>> ready;
    };
    std::chrono::seconds elapsed() const {
        return std::chrono::duration_cast<std::chrono::seconds>(now_.time_since_epoch());
    }
    std::chrono::steady_clock::time_point now_{};
    std::vector<Pending> pending_;
};

}  // namespace nv::test
