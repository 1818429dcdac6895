#include "state/persisted_nodes.h"

#include "state/agent_copies.h"

namespace overseer {

Result<std::optional<std::string>> PersistedNodes::find(const std::string& agent) {
    auto statement =
        Statement::prepare(database_.durable(), "SELECT node FROM persisted_nodes WHERE agent=?");
    if (!statement) return tl::unexpected(statement.error());
    const Result<bool> row = statement->add(agent).step();
    if (!row) return tl::unexpected(row.error());
    return *row ? std::optional(statement->text(0)) : std::nullopt;
}

std::optional<std::string> PersistedNodes::copyOf(const std::string& agent) const {
    const auto copies = agent_copies::readAll(database_.copiesFolder());
    const auto found = copies.find(agent);
    return found != copies.end() ? std::optional(found->second) : std::nullopt;
}

Result<bool> PersistedNodes::store(const std::string& agent, const std::string& xml) {
    const Result<std::optional<std::string>> stored = find(agent);
    if (!stored) return tl::unexpected(stored.error());
    if (stored->value_or(std::string()) == xml) {
        // A copy that was lost, or could not be written the last time, comes back.
        const Result<> copied = keepCopy(agent, xml);
        if (!copied) return tl::unexpected(copied.error());
        return false;
    }
    copied_.erase(agent);
    auto statement = Statement::prepare(database_.durable(),
                                        "INSERT INTO persisted_nodes(agent, node) VALUES(?, ?) "
                                        "ON CONFLICT(agent) DO UPDATE SET node=excluded.node");
    if (!statement) return tl::unexpected(statement.error());
    if (auto written = statement->add(agent).add(xml).run(); !written)
        return inContext("cannot store the settings of " + agent, written.error());
    const Result<> copied = keepCopy(agent, xml);
    if (!copied) return tl::unexpected(copied.error());
    return true;
}

Result<> PersistedNodes::keepCopy(const std::string& agent, const std::string& xml) {
    if (copied_.count(agent) != 0) return {};
    Result<> copied = agent_copies::write(database_.copiesFolder(), agent, xml);
    if (copied) copied_.insert(agent);
    return copied;
}

}  // namespace overseer
