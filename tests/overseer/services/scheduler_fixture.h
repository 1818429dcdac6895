#pragma once

#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>
#include <vector>

#include "fake_clock.h"
#include "services/scheduler.h"
#include "state_folder.h"
#include "zone_scope.h"

/// A scheduler on a database of its own and a clock that the test moves. Deliveries are noted as
/// "TIME device:event", TIME in UTC without the seconds where they are 0.
class SchedulerFixture : public testing::Test {
  protected:
    static constexpr std::uint32_t kAgent = 7;

    /// The zone is set before anything asks for the time.
    explicit SchedulerFixture(const char* zone = "UTC", const char* now = "2026-11-23 00:00:00")
        : zone_(zone), clock_(std::make_shared<FakeClock>(utc(now))) {
        restart();
    }

    /// Ends the scheduler, as a restart of the host would, and starts the next one.
    void restart() {
        scheduler_.reset();
        store_.reset();
        database_.reset();
        database_ = folder_.open();
        store_ = std::make_unique<overseer::ScheduleStore>(*database_);
        scheduler_ = std::make_unique<overseer::Scheduler>(overseer::Scheduler::Surroundings{
            context_, clock_, *store_, [this] { return idle_; },
            [this](std::uint32_t device, std::uint32_t event) { delivered(device, event); },
            [this] { ++looks_; }});
        ASSERT_TRUE(scheduler_->start());
    }

    /// Adds a daily entry at that local time of day, begun on the first of the year.
    std::uint32_t addDaily(const std::string& name, int hours, int minutes,
                           const nv::scheduler::entry_attributes& attributes = {}) {
        using boost::posix_time::ptime;
        using boost::posix_time::time_duration;
        return scheduler_->AddEntry(boost::make_shared<nv::scheduler::daily_repeat_x_days_entry>(
            nv::scheduler::event_info(name, kAgent, ""), attributes, 1u,
            ptime(boost::gregorian::date(2026, 1, 1), time_duration(hours, minutes, 0)),
            ptime(boost::posix_time::max_date_time)));
    }
    /// The same with the agent as its listener.
    std::uint32_t addHeard(const std::string& name, int hours, int minutes) {
        const std::uint32_t id = addDaily(name, hours, minutes);
        EXPECT_EQ(scheduler_->addListener(kAgent, id), 0);
        return id;
    }
    std::string wall() const {
        const std::string text = overseer::utcText(overseer::toUtcMilliseconds(clock_->wallTime()));
        return text.substr(5, 5) + " " + text.substr(11, text.substr(17, 2) == "00" ? 5 : 8);
    }
    void delivered(std::uint32_t device, std::uint32_t event) {
        deliveries_.push_back(fmt::format("{} {}:{}", wall(), device, event));
        if (onDelivery_) onDelivery_();
    }

    ZoneScope zone_;
    StateFolder folder_;
    boost::asio::io_context context_;
    std::shared_ptr<FakeClock> clock_;
    bool idle_ = true;
    int looks_ = 0;
    std::vector<std::string> deliveries_;
    std::function<void()> onDelivery_;
    std::unique_ptr<overseer::Database> database_;
    std::unique_ptr<overseer::ScheduleStore> store_;
    std::unique_ptr<overseer::Scheduler> scheduler_;
};
