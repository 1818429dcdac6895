#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include "services/local_time.h"
#include "zone_scope.h"

namespace {

using namespace overseer::local_time;
using boost::posix_time::ptime;
using boost::posix_time::time_from_string;

DailyRule daily(const std::string& start, unsigned int interval = 1,
                const ptime& end = ptime(boost::posix_time::max_date_time)) {
    return {time_from_string(start), end, interval};
}

std::string utcText(std::time_t instant) {
    return to_simple_string(boost::posix_time::from_time_t(instant));
}

std::string text(const std::optional<Occurrence>& occurrence) {
    return occurrence ? utcText(occurrence->instant) : "never";
}

struct Row {
    const char* name;
    const char* zone;
    const char* start;  ///< local
    const char* after;  ///< UTC
    const char* next;   ///< UTC
};

class NextOccurrence : public testing::TestWithParam<Row> {};

TEST_P(NextOccurrence, IsTheFirstInstantAtWhichTheWallClockShowsTheTimeOrHasPassedIt) {
    const ZoneScope zone(GetParam().zone);
    const auto next = nextOccurrence(daily(GetParam().start), utc(GetParam().after), {});
    ASSERT_TRUE(next);
    EXPECT_EQ(next->instant, utc(GetParam().next)) << utcText(next->instant);
}

constexpr Row kRows[] = {
    {"BerlinWinter", "Europe/Berlin", "2026-01-01 02:30:00", "2026-01-10 12:00:00",
     "2026-01-11 01:30:00"},
    {"BerlinBeginOfTheSkippedHour", "Europe/Berlin", "2026-01-01 02:00:00", "2026-03-28 12:00:00",
     "2026-03-29 01:00:00"},
    {"BerlinInTheSkippedHour", "Europe/Berlin", "2026-01-01 02:30:00", "2026-03-28 12:00:00",
     "2026-03-29 01:00:00"},
    {"BerlinInTheRepeatedHour", "Europe/Berlin", "2026-01-01 02:30:00", "2026-10-24 12:00:00",
     "2026-10-25 00:30:00"},
    {"BerlinInTheSecondPass", "Europe/Berlin", "2026-01-01 02:30:00", "2026-10-25 01:10:00",
     "2026-10-26 01:30:00"},
    {"LordHoweHalfHourSkipped", "Australia/Lord_Howe", "2026-01-01 02:15:00", "2026-10-03 00:00:00",
     "2026-10-03 15:30:00"},
    {"LordHoweHalfHourRepeated", "Australia/Lord_Howe", "2026-01-01 01:45:00",
     "2026-04-04 00:00:00", "2026-04-04 14:45:00"},
    {"SaoPauloMidnightSkipped", "America/Sao_Paulo", "2018-01-01 00:00:00", "2018-11-03 12:00:00",
     "2018-11-04 03:00:00"},
    {"ApiaWholeDaySkipped", "Pacific/Apia", "2011-01-01 01:00:00", "2011-12-30 00:00:00",
     "2011-12-30 10:00:00"},
    {"FarFuture", "UTC", "2026-01-01 00:00:00", "2107-12-31 23:59:59", "2108-01-01 00:00:00"},
};

INSTANTIATE_TEST_SUITE_P(Table, NextOccurrence, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.name; });

TEST(NextOccurrenceOverYears, ComesOncePerLocalDayInEveryZone) {
    for (const char* name : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe",
                             "Africa/Casablanca", "Asia/Kathmandu", "America/St_Johns"}) {
        const ZoneScope zone(name);
        const DailyRule rule = daily("2026-01-01 02:15:00");
        boost::gregorian::date expected(2026, 1, 2);
        std::time_t after = toUtc(time_from_string("2026-01-01 20:00:00"));
        for (int day = 0; day < 730; ++day, expected += boost::gregorian::days(1)) {
            const auto next = nextOccurrence(rule, after, {});
            ASSERT_TRUE(next);
            ASSERT_EQ(next->date, expected) << name << " after " << utcText(after);
            after = next->instant;
        }
    }
}

TEST(NextOccurrenceRules, KeepIntervalEndAndLastDate) {
    const ZoneScope zone("UTC");
    const DailyRule third = daily("2026-01-01 03:00:00", 3);
    EXPECT_EQ(text(nextOccurrence(third, utc("2026-01-01 03:00:00"), {})), "2026-Jan-04 03:00:00");
    EXPECT_EQ(
        text(nextOccurrence(third, utc("2026-01-03 00:00:00"), boost::gregorian::date(2026, 1, 4))),
        "2026-Jan-07 03:00:00");
    const DailyRule ending =
        daily("2026-01-01 03:00:00", 1, time_from_string("2026-01-03 03:00:00"));
    EXPECT_EQ(text(nextOccurrence(ending, utc("2026-01-02 12:00:00"), {})), "2026-Jan-03 03:00:00");
    EXPECT_EQ(text(nextOccurrence(ending, utc("2026-01-03 03:00:00"), {})), "never");
    EXPECT_EQ(text(nextOccurrence(daily("9999-12-31 03:00:00"), utc("9999-12-31 04:00:00"), {})),
              "never");
}

}  // namespace
