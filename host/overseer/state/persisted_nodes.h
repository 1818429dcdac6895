#pragma once

#include <optional>
#include <set>
#include <string>

#include "state/database.h"

namespace overseer {

/// What agents persist, as XML text by agent name: in the database, and a copy of each as
/// `agents/NAME.xml` for the day that the database is lost. I/O thread only.
class PersistedNodes {
  public:
    /// `database` outlives it.
    explicit PersistedNodes(Database& database) : database_(database) {}

    /// Nothing when nothing was ever stored for the agent.
    Result<std::optional<std::string>> find(const std::string& agent);
    /// The copy of what was stored, for a text that turns out to be none. Nothing without one.
    std::optional<std::string> copyOf(const std::string& agent) const;
    /// Stores the text when it differs from what is stored; it survives a power cut then.
    /// @return whether something was written. An error when the copy could not be written although
    ///         the database was.
    Result<bool> store(const std::string& agent, const std::string& xml);

  private:
    Result<> keepCopy(const std::string& agent, const std::string& xml);

    Database& database_;
    std::set<std::string> copied_;  ///< agents whose copy is known to hold what is stored
};

}  // namespace overseer
