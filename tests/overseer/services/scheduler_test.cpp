#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/make_shared.hpp>

#include "scheduler_fixture.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using SchedulerTest = SchedulerFixture;

TEST_F(SchedulerTest, DeliversOnceToAListenerThatRegisteredTwice) {
    const std::uint32_t id = addHeard("nightly", 1, 0);
    EXPECT_EQ(scheduler_->addListener(kAgent, id), 0);
    EXPECT_EQ(scheduler_->addListener(8, id), 0);
    clock_->pass(2h);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 01:00 7:1", "11-23 01:00 8:1"));
}

TEST_F(SchedulerTest, RefusesEntriesWithoutTimesAndListenersOfUnknownEvents) {
    EXPECT_LT(scheduler_->addListener(kAgent, 12), 0);
    using namespace nv::scheduler;
    const boost::posix_time::ptime start(boost::gregorian::date(2026, 1, 1));
    const boost::posix_time::ptime end(boost::posix_time::max_date_time);
    const event_info info("x", 1, "");
    EXPECT_EQ(scheduler_->AddEntry(nullptr), 0u);
    EXPECT_EQ(scheduler_->AddEntry(boost::make_shared<daily_repeat_x_days_entry>(
                  info, entry_attributes{}, 0u, start, end)),
              0u);
    EXPECT_EQ(scheduler_->AddEntry(boost::make_shared<daily_repeat_x_days_entry>(
                  info, entry_attributes{}, 1u, boost::posix_time::ptime(), end)),
              0u);
}

TEST_F(SchedulerTest, FindsAndRenamesEventsOverARestart) {
    const std::uint32_t id = addDaily("earlier", 1, 0);
    EXPECT_TRUE(scheduler_->RenameEvent(id, "now"));
    EXPECT_FALSE(scheduler_->RenameEvent(id + 1, "now"));
    restart();
    EXPECT_EQ(scheduler_->FindEventId("now"), id);
    EXPECT_EQ(scheduler_->FindEventId("earlier"), 0u);
}

TEST_F(SchedulerTest, KeepsEventsOfOneMinuteApartInOrderOfId) {
    addHeard("first", 2, 30);
    addHeard("second", 2, 30);
    clock_->pass(24h);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 02:30 7:1", "11-23 02:31 7:2"));
}

TEST_F(SchedulerTest, HoldsTheSecondEventUntilTheFirstOnesRunIsOver) {
    addHeard("first", 2, 30);
    addHeard("second", 2, 30);
    onDelivery_ = [this] { idle_ = false; };
    clock_->pass(2h + 42min);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 02:30 7:1"));
    idle_ = true;
    clock_->pass(10s);
    EXPECT_EQ(deliveries_.size(), 2u);
}

TEST_F(SchedulerTest, WaitsForABusyNetworkAnHourAtMost) {
    addHeard("first", 2, 0);
    addHeard("second", 2, 0);
    idle_ = false;
    clock_->pass(2h + 59min + 50s);
    EXPECT_THAT(deliveries_, IsEmpty());
    clock_->pass(5min);
    ASSERT_EQ(deliveries_.size(), 2u);
    EXPECT_EQ(deliveries_[0].substr(0, 11), "11-23 03:00");
    EXPECT_EQ(deliveries_[1].substr(0, 11), "11-23 03:01");
}

TEST_F(SchedulerTest, DoesNotHoldOneListenerBackForAnother) {
    const std::uint32_t first = addHeard("first", 2, 0);
    const std::uint32_t second = addDaily("second", 2, 0);
    scheduler_->addListener(8, second);
    EXPECT_LT(first, second);
    clock_->pass(3h);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 02:00 7:1", "11-23 02:00 8:2"));
}

TEST_F(SchedulerTest, GoesOutAtOnceForAPerson) {
    const std::uint32_t first = addHeard("first", 2, 0);
    idle_ = false;
    EXPECT_EQ(valueOf(scheduler_->fire(first)), 1u);
    EXPECT_EQ(valueOf(scheduler_->fire(first)), 1u);
    EXPECT_FALSE(scheduler_->fire(addDaily("unheard", 2, 0)));
    EXPECT_THAT(deliveries_, ElementsAre("11-23 00:00 7:1", "11-23 00:00 7:1"));
    idle_ = true;
    clock_->pass(3h);
    EXPECT_EQ(deliveries_.back(), "11-23 02:00 7:1");
}

TEST_F(SchedulerTest, ListsWhatUsersMaySee) {
    addHeard("seen", 2, 0);
    nv::scheduler::entry_attributes attributes;
    attributes.hidden = true;
    addDaily("hidden", 3, 0, attributes);
    clock_->pass(3h);
    const auto listing = scheduler_->list();
    ASSERT_EQ(listing.size(), 1u);
    EXPECT_EQ(overseer::utcText(listing[0].next.value()), "2026-11-24T02:00:00.000Z");
    EXPECT_EQ(overseer::utcText(listing[0].lastDelivery.value()).substr(0, 19),
              "2026-11-23T02:00:00");
    EXPECT_EQ(listing[0].deviceId, kAgent);
}

TEST_F(SchedulerTest, ForgetsListenersWithWhatWaitsForThem) {
    const std::uint32_t first = addHeard("first", 2, 0);
    addHeard("second", 2, 0);
    idle_ = false;
    clock_->pass(2h + 10min);
    scheduler_->removeListeners(kAgent);
    idle_ = true;
    clock_->pass(48h);
    EXPECT_THAT(deliveries_, IsEmpty());
    restart();
    EXPECT_EQ(scheduler_->FindEventId("first"), first);
}

TEST_F(SchedulerTest, TakesChangesFromInsideADelivery) {
    const std::uint32_t first = addHeard("first", 2, 0);
    addHeard("second", 2, 0);
    onDelivery_ = [&] {
        if (scheduler_->FindEventId("third") == 0) addHeard("third", 2, 5);
        scheduler_->addListener(kAgent, first);
    };
    clock_->pass(3h);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 02:00 7:1", "11-23 02:01 7:2", "11-23 02:05 7:3"));
}

TEST_F(SchedulerTest, MakesNoDeliveryOnceItWasStopped) {
    addHeard("first", 2, 0);
    addHeard("second", 2, 0);
    onDelivery_ = [this] { scheduler_->stop(); };
    clock_->pass(48h);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 02:00 7:1"));
}

TEST_F(SchedulerTest, WakesUpAFewTimesADayWhileNothingWaits) {
    addHeard("first", 2, 0);
    addHeard("second", 2, 0);
    clock_->pass(24h);
    EXPECT_LE(clock_->calls(), 30);
}

}  // namespace
