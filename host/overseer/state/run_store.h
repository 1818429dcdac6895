#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "state/database.h"

namespace overseer {

/// Small things that survive a restart: the last run of each agent as JSON text, and counters. I/O
/// thread only.
class RunStore {
  public:
    /// `database` outlives it.
    explicit RunStore(Database& database) : database_(database) {}
    Result<std::optional<std::string>> find(const std::string& agent);
    Result<> store(const std::string& agent, const std::string& json);

    /// A counter's value, 0 when it was never set.
    Result<std::int64_t> counter(const std::string& name);
    Result<> setCounter(const std::string& name, std::int64_t value);

  private:
    Database& database_;
};

}  // namespace overseer
