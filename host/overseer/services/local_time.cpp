#include "services/local_time.h"

#include <algorithm>
#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/conversion.hpp>

namespace overseer::local_time {
namespace {

namespace gregorian = boost::gregorian;
namespace posix_time = boost::posix_time;

constexpr std::time_t kDay = std::time_t{24} * 60 * 60;

/// The wall clock's reading as if it were UTC, in seconds since the epoch.
std::time_t wallSeconds(std::time_t instant) {
    std::tm fields{};
    if (localtime_r(&instant, &fields) == nullptr) return instant;
    return timegm(&fields);
}

std::time_t wallSeconds(const posix_time::ptime& wall) {
    const posix_time::ptime epoch(gregorian::date(1970, 1, 1));
    return static_cast<std::time_t>((wall - epoch).total_seconds());
}

/// The instant at which the wall clock jumps over `wall`, which it shows neither after the one nor
/// after the other distance to UTC: the first one that shows more.
std::time_t endOfGap(std::time_t wall, std::time_t smallerDistance, std::time_t greaterDistance) {
    std::time_t before = wall - greaterDistance;  // still shows less than `wall`
    std::time_t after = wall - smallerDistance;   // shows more already
    while (after - before > 1) {
        const std::time_t middle = before + (after - before) / 2;
        (wallSeconds(middle) < wall ? before : after) = middle;
    }
    return after;
}

std::time_t instantOf(std::time_t wall) {
    // No zone is more than a day away from UTC, and none changes its distance twice within two.
    const std::time_t early = wallSeconds(wall - kDay) - (wall - kDay);
    const std::time_t late = wallSeconds(wall + kDay) - (wall + kDay);
    const auto [smaller, greater] = std::minmax(early, late);
    // The greater distance gives the earlier instant: the first pass of a time that is repeated.
    if (wallSeconds(wall - greater) == wall) return wall - greater;
    if (wallSeconds(wall - smaller) == wall) return wall - smaller;
    return endOfGap(wall, smaller, greater);
}

/// Number of the first occurrence that can lie after `date`, two early: a day may be skipped whole.
std::int64_t firstCandidate(const DailyRule& rule, const gregorian::date& date) {
    const std::int64_t days = (date - rule.start.date()).days();
    return std::max<std::int64_t>(days / rule.intervalDays - 2, 0);
}

}  // namespace

posix_time::ptime fromUtc(std::time_t instant) {
    tzset();  // NOLINT(concurrency-mt-unsafe): the zone may be changed while the host runs
    return posix_time::from_time_t(wallSeconds(instant));
}

std::time_t toUtc(const posix_time::ptime& wall) {
    tzset();  // NOLINT(concurrency-mt-unsafe)
    return instantOf(wallSeconds(wall));
}

std::optional<Occurrence> nextOccurrence(const DailyRule& rule, std::time_t after,
                                         const gregorian::date& lastDate) {
    const posix_time::ptime wall = fromUtc(after);
    std::int64_t number = firstCandidate(rule, wall.date());
    if (!lastDate.is_special() && lastDate > wall.date())
        number = std::max(number, firstCandidate(rule, lastDate));
    const gregorian::date lastPossible(gregorian::max_date_time);
    for (;; ++number) {
        const std::int64_t days = number * rule.intervalDays;
        if (days > (lastPossible - rule.start.date()).days()) return std::nullopt;
        const posix_time::ptime occurrence = rule.start + gregorian::days(days);
        if (occurrence > rule.end) return std::nullopt;
        if (!lastDate.is_special() && occurrence.date() <= lastDate) continue;
        const std::time_t instant = toUtc(occurrence);
        if (instant > after) return Occurrence{occurrence.date(), instant};
    }
}

}  // namespace overseer::local_time
