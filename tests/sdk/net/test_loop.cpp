#include "test_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

namespace nv::test {

struct TestLoop::State {
    boost::asio::io_context context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{
        context.get_executor()};
    std::size_t handlersRun = 0;
    std::vector<std::string> thrown;
};

TestLoop::TestLoop() : state_(std::make_unique<State>()) {}
TestLoop::~TestLoop() = default;

boost::asio::io_context& TestLoop::context() {
    return state_->context;
}

void TestLoop::runUntil(const std::function<bool()>& done, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "the loop hangs";
        try {
            state_->handlersRun += state_->context.run_one_for(std::chrono::milliseconds(100));
        } catch (const std::exception& error) {
            state_->thrown.emplace_back(error.what());
        }
    }
}

void TestLoop::runReady() {
    state_->handlersRun += state_->context.poll();
}

void TestLoop::stop() {
    state_->context.stop();
}

std::size_t TestLoop::handlersRun() const {
    return state_->handlersRun;
}

const std::vector<std::string>& TestLoop::thrown() const {
    return state_->thrown;
}

hosting::Clock::Wait ManualClock::after(boost::asio::io_context& context,
                                        std::chrono::milliseconds delay,
                                        std::function<void()> ready) {
    auto wait = std::make_shared<std::function<void()>>(std::move(ready));
    pending_.push_back({&context, delay, wait});
    return wait;
}

std::vector<std::chrono::milliseconds> ManualClock::waits() const {
    std::vector<std::chrono::milliseconds> delays;
    for (const Pending& pending : pending_) {
        if (!pending.ready.expired()) delays.push_back(pending.delay);
    }
    return delays;
}

void ManualClock::finishWait() {
    pending_.erase(std::remove_if(pending_.begin(), pending_.end(),
                                  [](const Pending& each) { return each.ready.expired(); }),
                   pending_.end());
    ASSERT_FALSE(pending_.empty()) << "nobody waits";
    const auto first =
        std::min_element(pending_.begin(), pending_.end(),
                         [](const Pending& a, const Pending& b) { return a.delay < b.delay; });
    now_ += first->delay;
    boost::asio::post(*first->context, [weak = first->ready] {
        if (const auto ready = weak.lock()) (*ready)();
    });
    pending_.erase(first);
}

}  // namespace nv::test
