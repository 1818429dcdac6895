#include "state/run_store.h"

namespace overseer {

Result<std::optional<std::string>> RunStore::find(const std::string& agent) {
    auto statement =
        Statement::prepare(database_.relaxed(), "SELECT record FROM runs WHERE agent=?");
    if (!statement) return tl::unexpected(statement.error());
    const Result<bool> row = statement->add(agent).step();
    if (!row) return tl::unexpected(row.error());
    return *row ? std::optional(statement->text(0)) : std::nullopt;
}

Result<> RunStore::store(const std::string& agent, const std::string& json) {
    auto statement = Statement::prepare(database_.relaxed(),
                                        "INSERT INTO runs(agent, record) VALUES(?,?) "
                                        "ON CONFLICT(agent) DO UPDATE SET record=excluded.record");
    if (!statement) return tl::unexpected(statement.error());
    return statement->add(agent).add(json).run();
}

Result<std::int64_t> RunStore::counter(const std::string& name) {
    auto statement =
        Statement::prepare(database_.relaxed(), "SELECT value FROM counters WHERE name=?");
    if (!statement) return tl::unexpected(statement.error());
    const Result<bool> row = statement->add(name).step();
    if (!row) return tl::unexpected(row.error());
    return *row ? statement->integer(0) : 0;
}

Result<> RunStore::setCounter(const std::string& name, std::int64_t value) {
    auto statement = Statement::prepare(database_.durable(),
                                        "INSERT INTO counters(name, value) VALUES(?,?) "
                                        "ON CONFLICT(name) DO UPDATE SET value=excluded.value");
    if (!statement) return tl::unexpected(statement.error());
    return statement->add(name).add(value).run();
}

}  // namespace overseer
