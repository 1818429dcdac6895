#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/make_shared.hpp>

#include "scheduler_fixture.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using SchedulerClockTest = SchedulerFixture;

TEST_F(SchedulerClockTest, MakesNothingUpThatPassedBeforeTheEntryWasMade) {
    clock_->pass(12h);
    addHeard("nightly", 3, 0);
    for (int hour = 0; hour < 14; ++hour) clock_->pass(1h + 1s);
    EXPECT_THAT(deliveries_, IsEmpty());
    EXPECT_GE(looks_, 13) << "an hour apart";
    clock_->pass(2h);
    EXPECT_THAT(deliveries_, ElementsAre("11-24 03:00 7:1"));
}

TEST_F(SchedulerClockTest, MakesNothingUpThatPassedWhileTheHostWasDown) {
    const std::uint32_t id = addHeard("nightly", 3, 0);
    scheduler_.reset();
    clock_->pass(30h);
    restart();
    ASSERT_EQ(scheduler_->addListener(kAgent, id), 0);
    clock_->pass(24h);
    EXPECT_THAT(deliveries_, ElementsAre("11-25 03:00 7:1"));
}

TEST_F(SchedulerClockTest, DeliversOnceWhenTheClockIsSetBackOverAnOccurrence) {
    addHeard("nightly", 3, 0);
    clock_->pass(3h + 30min);
    clock_->set(-2h);
    clock_->pass(24h);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 03:00 7:1"));
    clock_->pass(2h);
    EXPECT_EQ(deliveries_.size(), 2u);
    EXPECT_EQ(deliveries_.back(), "11-24 03:00 7:1");
}

TEST_F(SchedulerClockTest, RemembersTheOccurrenceOverARestartOnAClockThatWasSetBack) {
    const std::uint32_t id = addHeard("nightly", 3, 0);
    clock_->pass(3h + 30min);
    clock_->set(-2h);
    restart();
    ASSERT_EQ(scheduler_->addListener(kAgent, id), 0);
    clock_->pass(20h);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 03:00 7:1"));
}

TEST_F(SchedulerClockTest, MakesNothingUpThatTheClockJumpedOver) {
    addHeard("nightly", 3, 0);
    clock_->pass(2h + 30min);
    clock_->set(2h);
    clock_->pass(20h);
    EXPECT_THAT(deliveries_, IsEmpty());
    clock_->pass(4h);
    EXPECT_THAT(deliveries_, ElementsAre("11-24 03:00 7:1"));
}

TEST_F(SchedulerClockTest, TakesNoHarmFromSmallCorrections) {
    addHeard("nightly", 3, 0);
    clock_->pass(2h + 59min + 50s);
    clock_->set(20s);
    clock_->pass(1min);
    EXPECT_EQ(deliveries_.size(), 1u);
    clock_->set(-40s);
    clock_->pass(20h);
    EXPECT_EQ(deliveries_.size(), 1u);
}

TEST_F(SchedulerClockTest, StillDeliversWhatCameDueWhileTheLoopWasBlocked) {
    addHeard("nightly", 3, 0);
    clock_->pass(2h + 55min);
    clock_->block(10min);
    clock_->pass(0s);
    EXPECT_THAT(deliveries_, ElementsAre("11-23 03:05 7:1"));
}

TEST_F(SchedulerClockTest, IsNotSilencedByAClockThatWasOnceFarAhead) {
    addHeard("nightly", 3, 0);
    clock_->pass(1h + 30min);
    clock_->set(std::chrono::hours(24 * 3650));
    clock_->pass(48h);
    const std::size_t before = deliveries_.size();
    EXPECT_GE(before, 1u);
    clock_->set(-std::chrono::hours(24 * 3650));
    clock_->pass(48h);
    EXPECT_GE(deliveries_.size(), before + 1);
}

class BerlinScheduler : public SchedulerFixture {
  protected:
    BerlinScheduler() : SchedulerFixture("Europe/Berlin", "2026-10-24 12:00:00") {}
};

TEST_F(BerlinScheduler, FollowsTheZoneWhenItIsChanged) {
    addHeard("nightly", 12, 0);
    clock_->pass(1h);
    const ZoneScope moved("America/New_York");
    clock_->pass(24h);
    EXPECT_THAT(deliveries_, ElementsAre("10-24 16:00 7:1"));
}

}  // namespace
