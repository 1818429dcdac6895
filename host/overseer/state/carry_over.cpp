#include "state/carry_over.h"

#include <sqlite3.h>

#include <boost/filesystem/operations.hpp>
#include <pugixml.hpp>
#include <vector>

#include "state/agent_copies.h"
#include "state/schema.h"
#include "state/statement.h"

namespace overseer {
namespace {

/// A tree of pages whose links were damaged can lead in circles; no table of ours is this long.
constexpr std::size_t kMostRows = 1'000'000;

enum class Ending { kComplete, kTorn };

void closeConnection(sqlite3* connection) {
    sqlite3_close_v2(connection);
}

Connection openReadOnly(const boost::filesystem::path& file) {
    sqlite3* opened = nullptr;
    boost::system::error_code error;
    // Beside an empty file SQLite would remove the log, which is to be set aside with it.
    if (boost::filesystem::file_size(file, error) == 0 || error) return {nullptr, closeConnection};
    const int code = sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    Connection connection(opened, closeConnection);
    if (code != SQLITE_OK) connection.reset();
    return connection;
}

/// False when the row is not one that the table takes.
Result<bool> insertRow(sqlite3_stmt* insert, sqlite3_stmt* row) {
    sqlite3_reset(insert);
    for (int column = 0; column < sqlite3_column_count(row); ++column)
        sqlite3_bind_value(insert, column + 1, sqlite3_column_value(row, column));
    const int code = sqlite3_step(insert);
    if (code == SQLITE_DONE) return sqlite3_changes(sqlite3_db_handle(insert)) > 0;
    if (code == SQLITE_CONSTRAINT) return false;
    return databaseFailure(sqlite3_db_handle(insert), "cannot carry rows over");
}

/// Walks the table from one end until it ends or tears. @return rows that came over are added here
Result<Ending> copyRows(sqlite3* damaged, const schema::Table& table, const char* direction,
                        sqlite3_stmt* insert, std::size_t& carried) {
    auto rows = Statement::prepare(damaged, fmt::format("SELECT {} FROM {} ORDER BY rowid {}",
                                                        table.columns, table.name, direction));
    if (!rows) return Ending::kTorn;
    for (std::size_t count = 0; count < kMostRows; ++count) {
        const Result<bool> row = rows->step();
        if (!row) return Ending::kTorn;
        if (!*row) return Ending::kComplete;
        const Result<bool> inserted = insertRow(insert, rows->get());
        if (!inserted) return tl::unexpected(inserted.error());
        if (*inserted) ++carried;
    }
    return Ending::kTorn;
}

std::string placeholders(const char* columns) {
    std::string marks = "?";
    for (const char* at = columns; *at != '\0'; ++at)
        if (*at == ',') marks += ",?";
    return marks;
}

/// From both ends, so that one torn page costs only what lies on it.
Result<std::size_t> copyTable(sqlite3* damaged, const schema::Table& table, sqlite3* fresh) {
    auto insert =
        Statement::prepare(fresh, fmt::format("INSERT OR IGNORE INTO {}({}) VALUES({})", table.name,
                                              table.columns, placeholders(table.columns)));
    if (!insert) return tl::unexpected(insert.error());
    std::size_t carried = 0;
    Result<Ending> ending = copyRows(damaged, table, "ASC", insert->get(), carried);
    if (ending && *ending == Ending::kTorn)
        ending = copyRows(damaged, table, "DESC", insert->get(), carried);
    if (!ending) return tl::unexpected(ending.error());
    return carried;
}

bool isWellFormed(const std::string& xml) {
    return static_cast<bool>(pugi::xml_document().load_buffer(xml.data(), xml.size()));
}

/// A node that tore gives way to its copy.
Result<> removeTornNodes(sqlite3* fresh) {
    auto nodes = Statement::prepare(fresh, "SELECT agent, node FROM persisted_nodes");
    if (!nodes) return tl::unexpected(nodes.error());
    std::vector<std::string> torn;
    for (Result<bool> row = nodes->step(); row && *row; row = nodes->step())
        if (!isWellFormed(nodes->text(1))) torn.push_back(nodes->text(0));
    for (const std::string& agent : torn) {
        auto removal = Statement::prepare(fresh, "DELETE FROM persisted_nodes WHERE agent=?");
        if (!removal) return tl::unexpected(removal.error());
        if (auto removed = removal->add(agent).run(); !removed) return removed;
    }
    return {};
}

Result<std::string> restoreCopies(const boost::filesystem::path& copies, sqlite3* fresh) {
    std::string restored;
    for (const auto& [agent, xml] : agent_copies::readAll(copies)) {
        auto insert = Statement::prepare(
            fresh, "INSERT OR IGNORE INTO persisted_nodes(agent, node) VALUES(?,?)");
        if (!insert) return tl::unexpected(insert.error());
        if (auto done = insert->add(agent).add(xml).run(); !done)
            return tl::unexpected(done.error());
        if (sqlite3_changes(fresh) > 0)
            restored += fmt::format("{}settings of {} from their copy",
                                    restored.empty() ? "" : ", ", agent);
    }
    return restored;
}

Result<std::string> copyTables(sqlite3* damaged, sqlite3* fresh) {
    std::string summary;
    for (const schema::Table& table : schema::kTables) {
        const Result<std::size_t> carried = copyTable(damaged, table, fresh);
        if (!carried) return tl::unexpected(carried.error());
        if (*carried > 0)
            summary += fmt::format("{}{} of {}", summary.empty() ? "" : ", ", *carried, table.name);
    }
    return summary;
}

}  // namespace

Result<std::string> carryOver(const boost::filesystem::path& damaged,
                              const boost::filesystem::path& copies, sqlite3* fresh) {
    auto transaction = Transaction::begin(fresh);
    if (!transaction) return tl::unexpected(transaction.error());
    Result<std::string> summary = std::string();
    if (const Connection source = openReadOnly(damaged)) summary = copyTables(source.get(), fresh);
    if (!summary) return summary;
    if (auto removed = removeTornNodes(fresh); !removed) return tl::unexpected(removed.error());
    Result<std::string> restored = restoreCopies(copies, fresh);
    if (!restored) return restored;
    if (auto committed = transaction->commit(); !committed)
        return tl::unexpected(committed.error());
    if (!summary->empty() && !restored->empty()) *summary += ", ";
    return *summary + *restored;
}

}  // namespace overseer
