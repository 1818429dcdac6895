// The daily events. The random generator and the conversion to local time are the C library's; the
// definitions here stand before those, so that a test can say what they answer.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "agent_session.h"
#include "norvane_agent_driverupdate.h"

namespace {

std::vector<int> draws;  ///< what rand answers, last first
int seedings = 0;
std::optional<std::tm> localTime;  ///< what the conversion gives; none: it fails
bool replaceLocalTime = false;

}  // namespace

extern "C" {

void srand(unsigned int) noexcept {
    ++seedings;
}

int rand() noexcept {
    if (draws.empty()) return 0;
    const int draw = draws.back();
    draws.pop_back();
    return draw;
}

std::tm* localtime_r(const std::time_t* time, std::tm* result) noexcept {
    if (!replaceLocalTime) {
        using Function = std::tm* (*)(const std::time_t*, std::tm*);
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "localtime_r"));
        return real(time, result);
    }
    if (!localTime) return nullptr;
    *result = *localTime;
    return result;
}

}  // extern "C"

namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using nv::scheduler::daily_repeat_x_days_entry;
using support::AgentSession;
using support::RecordingHost;
using testing::ElementsAre;

const std::string kNormal = "Driver and Agent Auto Update Event";
const std::string kForced = "Driver and Agent Forced Auto Update Event";
const std::string kEarlierNormal = "Auto Update Driver Agent Event";
const std::string kEarlierForced = "Auto Update Driver Agent Event Forced";

class DailyEvents : public testing::Test {
  protected:
    DailyEvents() {
        draws.clear();
        seedings = 0;
        localTime = std::tm{};
        localTime->tm_year = 124;
        localTime->tm_mon = 1;
        localTime->tm_mday = 29;
        localTime->tm_hour = 23;
        localTime->tm_min = 59;
        localTime->tm_sec = 59;
        replaceLocalTime = true;
    }
    ~DailyEvents() override { replaceLocalTime = false; }

    const daily_repeat_x_days_entry& entry(std::uint32_t id) {
        return dynamic_cast<const daily_repeat_x_days_entry&>(
            *session.host.scheduler.added().at(id));
    }

    AgentSession session;
};

TEST_F(DailyEvents, AreCreatedOnceAndListenedTo) {
    EXPECT_EQ(session.operations().LateInitialize(), 0);
    EXPECT_THAT(session.journal.take(),
                ElementsAre("find event " + kEarlierNormal, "find event " + kNormal,
                            "log DEBUG agent_driverupdate: Creating " + kNormal + " event.",
                            "add event " + kNormal, "listen 77 1", "find event " + kEarlierForced,
                            "find event " + kForced,
                            "log DEBUG agent_driverupdate: Creating " + kForced + " event.",
                            "add event " + kForced, "listen 77 2"));
    EXPECT_EQ(seedings, 2);

    EXPECT_EQ(session.operations().LateInitialize(), 0);
    EXPECT_THAT(
        session.journal.take(),
        ElementsAre("find event " + kEarlierNormal, "find event " + kNormal, "listen 77 1",
                    "find event " + kEarlierForced, "find event " + kForced, "listen 77 2"));
    EXPECT_EQ(seedings, 2);
    EXPECT_EQ(session.host.scheduler.names().size(), 2U);
}

TEST_F(DailyEvents, OfAnEarlierNameAreRenamedAndKept) {
    const auto normal = session.host.scheduler.put(kEarlierNormal);
    const auto forced = session.host.scheduler.put(kEarlierForced);
    session.operations().LateInitialize();
    EXPECT_THAT(session.journal.take(),
                ElementsAre("find event " + kEarlierNormal, "rename event 1 " + kNormal,
                            "find event " + kNormal, "listen 77 1", "find event " + kEarlierForced,
                            "rename event 2 " + kForced, "find event " + kForced, "listen 77 2"));
    EXPECT_EQ(session.host.scheduler.names().at(normal), kNormal);
    EXPECT_EQ(session.host.scheduler.names().at(forced), kForced);
    EXPECT_EQ(seedings, 0);
    // The forced event is told by its own id, although its earlier one went to the normal member.
    session.operations().OnSchedulerEvent(forced);
    EXPECT_TRUE(session.journal.has("message 0 Starting scheduled Forced Auto Update..."));
}

TEST_F(DailyEvents, OfTheEarlierForcedNameAloneAreNotTakenForForced) {
    const auto forced = session.host.scheduler.put(kEarlierForced);
    session.host.scheduler.failRenames();
    EXPECT_THROW(session.operations().LateInitialize(), std::runtime_error);
    session.operations().OnSchedulerEvent(forced);
    EXPECT_THAT(session.journal.only({"message"}),
                ElementsAre("message 0 Starting scheduled Auto Update..."));
}

TEST_F(DailyEvents, FireDailyWithoutEndAndCarryTheAgentsDevice) {
    session.operations().LateInitialize();
    EXPECT_EQ(entry(1).info().name(), kNormal);
    EXPECT_EQ(entry(2).info().name(), kForced);
    EXPECT_EQ(entry(1).info().deviceId(), RecordingHost::kDeviceId);
    EXPECT_EQ(entry(1).info().description(), "");
    EXPECT_TRUE(entry(1).attributes().enabled);
    EXPECT_FALSE(entry(1).attributes().hidden);
    EXPECT_EQ(entry(1).intervalDays(), 1U);
    EXPECT_EQ(entry(1).end(), time_from_string("9999-12-31 23:59:59.999999"));
}

TEST_F(DailyEvents, HaveARandomTimeOfDayWithinTheNight) {
    struct Draw {
        int hours;
        int minutes;
        const char* start;
    };
    for (const Draw& row : {Draw{0, 0, "2024-02-29 00:00:00"}, Draw{3, 58, "2024-02-29 03:58:00"},
                            Draw{4, 59, "2024-02-29 00:00:00"}, Draw{7, 117, "2024-02-29 03:58:00"},
                            Draw{2'147'483'647, 2'147'483'647, "2024-02-29 03:54:00"}}) {
        AgentSession fresh;
        draws = {row.minutes, row.hours};
        fresh.operations().LateInitialize();
        const auto& created =
            dynamic_cast<const daily_repeat_x_days_entry&>(*fresh.host.scheduler.added().at(1));
        EXPECT_EQ(created.start(), time_from_string(row.start)) << row.hours << " " << row.minutes;
    }
}

TEST_F(DailyEvents, CannotBeMadeWithoutALocalTime) {
    localTime.reset();
    try {
        session.operations().LateInitialize();
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "could not convert calendar time to local time");
    }
    localTime = std::tm{};
    localTime->tm_year = 8100;
    localTime->tm_mday = 1;
    EXPECT_THROW(session.operations().LateInitialize(), std::out_of_range);
}

TEST_F(DailyEvents, WithoutAScheduleOrARoomInItAreSilentlyMissing) {
    session.host.hasScheduler = false;
    EXPECT_EQ(session.operations().LateInitialize(), -1);
    EXPECT_TRUE(session.journal.take().empty());
    session.host.hasScheduler = true;
    session.host.scheduler.refuseEntries(true);
    EXPECT_EQ(session.operations().LateInitialize(), -1);
    EXPECT_TRUE(session.journal.only({"log ERROR", "count", "plain", "listen"}).empty());
}

TEST_F(DailyEvents, ThatCannotBeListenedToAreToldAndStayKnown) {
    session.host.listenerAnswer = -5;
    EXPECT_EQ(session.operations().LateInitialize(), -5);
    EXPECT_THAT(
        session.journal.only({"log ERROR", "plain", "listen"}),
        ElementsAre(
            "listen 77 1",
            "log ERROR agent_driverupdate: Unable to register for the scheduled auto driver "
            "update event.",
            "plain count overseer.agent.driverupdate scheduler_event_create_failed 1 0",
            "listen 77 2",
            "log ERROR agent_driverupdate: Unable to register for the scheduled forced auto "
            "driver update event.",
            "plain count overseer.agent.driverupdate scheduler_event_forced_create_failed 1 0"));
    session.operations().OnSchedulerEvent(2);
    EXPECT_TRUE(session.journal.has("message 0 Starting scheduled Forced Auto Update..."));
}

}  // namespace
