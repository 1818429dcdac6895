#include "state/schema.h"

#include "state/statement.h"

namespace overseer::schema {

// STRICT keeps what is carried over out of a damaged page to the type that its column has.
const std::array<Table, 6> kTables = {{
    {"persisted_nodes", "agent, node", "agent TEXT NOT NULL UNIQUE, node TEXT NOT NULL"},
    {"schedule",
     "id, name, device_id, description, enabled, hidden, interval_days, start, end, "
     "last_occurrence, last_delivery",
     "id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, device_id INTEGER NOT NULL, "
     "description TEXT NOT NULL, enabled INTEGER NOT NULL, hidden INTEGER NOT NULL, "
     "interval_days INTEGER NOT NULL, start TEXT NOT NULL, end TEXT NOT NULL, "
     "last_occurrence TEXT NOT NULL, last_delivery INTEGER NOT NULL"},
    {"drivers", "file_name, version, applied_md5, previous_md5, checked_size, checked_nanoseconds",
     "file_name TEXT NOT NULL UNIQUE, version INTEGER NOT NULL, applied_md5 TEXT NOT NULL, "
     "previous_md5 TEXT NOT NULL, checked_size INTEGER NOT NULL, "
     "checked_nanoseconds INTEGER NOT NULL"},
    {"counters", "name, value", "name TEXT NOT NULL UNIQUE, value INTEGER NOT NULL"},
    {"runs", "agent, record", "agent TEXT NOT NULL UNIQUE, record TEXT NOT NULL"},
    {"history", "id, time, agent, text, category, subcategory, result",
     "id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, agent TEXT NOT NULL, "
     "text TEXT NOT NULL, category TEXT NOT NULL, subcategory TEXT NOT NULL, "
     "result TEXT NOT NULL"},
}};

namespace {

std::string statementOf(const Table& table) {
    return fmt::format("CREATE TABLE {}({}) STRICT", table.name, table.definition);
}

// Pruning and listing look at one agent's records in order of id.
constexpr const char* kHistoryIndex = "CREATE INDEX history_by_agent ON history(agent, id)";

}  // namespace

Result<> create(sqlite3* connection) {
    auto transaction = Transaction::begin(connection);
    if (!transaction) return tl::unexpected(transaction.error());
    for (const Table& table : kTables)
        if (auto created = execute(connection, statementOf(table).c_str()); !created)
            return created;
    if (auto created = execute(connection, kHistoryIndex); !created) return created;
    const std::string version = fmt::format("PRAGMA user_version={}", kVersion);
    if (auto set = execute(connection, version.c_str()); !set) return set;
    return transaction->commit();
}

Result<std::optional<std::string>> check(sqlite3* connection) {
    for (const Table& table : kTables) {
        auto statement = Statement::prepare(
            connection, "SELECT sql FROM sqlite_schema WHERE type='table' AND name=?");
        if (!statement) return tl::unexpected(statement.error());
        const Result<bool> row = statement->add(std::string_view(table.name)).step();
        if (!row) return tl::unexpected(row.error());
        if (!*row) return fmt::format("the table {} is missing", table.name);
        if (statement->text(0) != statementOf(table))
            return fmt::format("the table {} is not as it was made", table.name);
    }
    return std::nullopt;
}

}  // namespace overseer::schema
