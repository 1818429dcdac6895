#include "state/history_store.h"

#include <sqlite3.h>

#include <algorithm>

namespace overseer {
namespace {

constexpr const char* kSelectHistory =
    "SELECT id, time, agent, text, category, subcategory, result FROM history ";

Result<std::vector<HistoryRecord>> readAll(Statement& rows) {
    std::vector<HistoryRecord> records;
    for (;;) {
        const Result<bool> row = rows.step();
        if (!row) return tl::unexpected(row.error());
        if (!*row) return records;
        records.push_back({rows.integer(0), rows.integer(1), rows.text(2), rows.text(3),
                           rows.text(4), rows.text(5), rows.text(6)});
    }
}

std::int64_t asLimit(std::size_t count) {
    return static_cast<std::int64_t>(std::min<std::size_t>(count, INT64_MAX));
}

}  // namespace

Result<std::int64_t> HistoryStore::add(const HistoryRecord& record) {
    auto statement =
        Statement::prepare(database_.relaxed(),
                           "INSERT INTO history(time, agent, text, category, subcategory, result) "
                           "VALUES(?,?,?,?,?,?)");
    if (!statement) return tl::unexpected(statement.error());
    statement->add(record.time).add(record.agent).add(record.text).add(record.category);
    if (auto written = statement->add(record.subcategory).add(record.result).run(); !written)
        return inContext("cannot store a history record", written.error());
    const std::int64_t id = sqlite3_last_insert_rowid(database_.relaxed());
    // The first record after a start counts as a full round: what an earlier process left goes too.
    const auto [added, first] = addedSincePruning_.try_emplace(record.agent, 0);
    if (first || ++added->second >= std::max<std::size_t>(recordsPerAgent_ / 100, 1)) {
        added->second = 0;
        if (auto pruned = prune(record.agent); !pruned) return tl::unexpected(pruned.error());
    }
    return id;
}

Result<> HistoryStore::prune(const std::string& agent) {
    auto statement = Statement::prepare(
        database_.relaxed(),
        "DELETE FROM history WHERE agent=?1 AND id <= (SELECT id FROM history WHERE agent=?1 "
        "ORDER BY id DESC LIMIT 1 OFFSET ?2)");
    if (!statement) return tl::unexpected(statement.error());
    return statement->add(agent).add(asLimit(recordsPerAgent_)).run();
}

Result<std::vector<HistoryRecord>> HistoryStore::last(std::size_t count) {
    auto statement = Statement::prepare(database_.relaxed(),
                                        std::string(kSelectHistory) + "ORDER BY id DESC LIMIT ?");
    if (!statement) return tl::unexpected(statement.error());
    Result<std::vector<HistoryRecord>> records = readAll(statement->add(asLimit(count)));
    if (records) std::reverse(records->begin(), records->end());
    return records;
}

}  // namespace overseer
