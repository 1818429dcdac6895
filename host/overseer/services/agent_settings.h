#pragma once

#include <nv/driver_operations.h>
#include <nv/xml_node.h>
#include <string>

#include "state/persisted_nodes.h"

namespace overseer {

/// What agents persist: handed to them at their initialisation, collected after every command and
/// every delivery. I/O thread only.
class AgentSettings {
  public:
    /// `store` outlives it.
    explicit AgentSettings(PersistedNodes& store) : store_(store) {}

    /// The node to initialise the agent with; an empty node, never null, when nothing is stored.
    Result<nv::XmlNode::Ptr> restore(const std::string& agent);
    /// Asks the agent for its node and stores it when it changed; does nothing for an agent that
    /// has none or does not want to be asked. What the agent throws becomes an error.
    Result<> collect(const std::string& agent, IDriverOperations& operations);
    /// What the agent would lose if it ended now: children of its node whose text is not stored, as
    /// `NAME "TEXT", …`; empty when there are none. Throws what the agent throws.
    std::string unstored(const std::string& agent, IDriverOperations& operations);

  private:
    Result<std::string> stored(const std::string& agent);

    PersistedNodes& store_;
};

}  // namespace overseer
