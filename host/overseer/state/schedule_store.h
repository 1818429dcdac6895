#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "state/database.h"

namespace overseer {

/// An entry of the schedule as it is kept.
struct StoredScheduleEntry {
    std::uint32_t id = 0;
    std::string name;
    std::uint32_t deviceId = 0;
    std::string description;
    bool enabled = true;
    bool hidden = false;
    unsigned int intervalDays = 1;
    boost::posix_time::ptime start;  ///< local time
    boost::posix_time::ptime end;    ///< local time; the greatest there is for none
    /// Local date of the last occurrence that the clock delivered, not_a_date_time when none was:
    /// kept so that a clock that is set back does not repeat it.
    boost::gregorian::date lastOccurrence;
    UtcMilliseconds lastDelivery = 0;  ///< by the clock or a person; 0 for never
};

/// The schedule's entries, by id. Each write survives a power cut. I/O thread only.
class ScheduleStore {
  public:
    /// `database` outlives it.
    explicit ScheduleStore(Database& database) : database_(database) {}
    /// In ascending order of ids.
    Result<std::vector<StoredScheduleEntry>> all();
    /// Adds an entry; its id is ignored.
    /// @return the id that it got, never 0 and never that of an earlier entry
    Result<std::uint32_t> add(const StoredScheduleEntry& entry);
    /// Writes name, state and last delivery of the entry with that id.
    Result<> update(const StoredScheduleEntry& entry);

  private:
    Database& database_;
};

}  // namespace overseer
