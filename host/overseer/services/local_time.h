#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <ctime>
#include <optional>

/// From the controller's wall clock to time and back, over daylight-saving changes. Reads the time
/// zone anew in each call; I/O thread only.
namespace overseer::local_time {

/// When an entry of the schedule occurs.
struct DailyRule {
    boost::posix_time::ptime start;  ///< first occurrence, local time; to the second
    boost::posix_time::ptime end;    ///< last instant at which it may occur, local time
    unsigned int intervalDays = 1;   ///< from 1
};

/// One occurrence: the local date that it belongs to, and the instant.
struct Occurrence {
    boost::gregorian::date date;
    std::time_t instant = 0;  ///< seconds since the epoch, UTC
};

/// The wall clock's reading at an instant.
boost::posix_time::ptime fromUtc(std::time_t instant);

/// The first instant at which the wall clock shows `wall` or has passed it: the end of the gap for
/// a time that is skipped, the first pass for one that is repeated.
std::time_t toUtc(const boost::posix_time::ptime& wall);

/// The first occurrence after `after` whose date is later than `lastDate`, which may be
/// not_a_date_time; nothing when the rule ends before.
std::optional<Occurrence> nextOccurrence(const DailyRule& rule, std::time_t after,
                                         const boost::gregorian::date& lastDate);

}  // namespace overseer::local_time
