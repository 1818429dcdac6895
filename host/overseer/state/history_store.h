#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "state/database.h"

namespace overseer {

/// A line of the history.
struct HistoryRecord {
    std::int64_t id = 0;  ///< grows with every record, over restarts too
    UtcMilliseconds time = 0;
    std::string agent;
    std::string text;
    std::string category;
    std::string subcategory;
    std::string result;
};

/// The last records of each agent. A power cut may cost the last ones. I/O thread only.
class HistoryStore {
  public:
    static constexpr std::size_t kRecordsPerAgent = 10'000;

    /// `database` outlives it.
    explicit HistoryStore(Database& database, std::size_t recordsPerAgent = kRecordsPerAgent)
        : database_(database), recordsPerAgent_(recordsPerAgent) {}

    /// Adds a record; its id is ignored. Now and then drops what is beyond the limit, so that an
    /// agent has at most a hundredth more than that.
    /// @return the id that it got
    Result<std::int64_t> add(const HistoryRecord& record);
    /// The last `count` records, oldest first.
    Result<std::vector<HistoryRecord>> last(std::size_t count);

  private:
    Result<> prune(const std::string& agent);

    Database& database_;
    std::size_t recordsPerAgent_;
    std::map<std::string, std::size_t> addedSincePruning_;
};

}  // namespace overseer
