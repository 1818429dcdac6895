#include "state/sqlite_driver_ledger.h"

namespace overseer {
namespace {

constexpr const char* kSelectDrivers =
    "SELECT file_name, version, applied_md5, previous_md5, checked_size, checked_nanoseconds "
    "FROM drivers ";

DriverRecord recordOf(const Statement& row) {
    DriverRecord record;
    record.fileName = row.text(0);
    record.version = static_cast<int>(row.integer(1));
    record.appliedMd5 = row.text(2);
    record.previousMd5 = row.text(3);
    record.checkedSize = static_cast<std::uint64_t>(row.integer(4));
    record.checkedNanoseconds = row.integer(5);
    return record;
}

}  // namespace

Result<std::optional<DriverRecord>> SqliteDriverLedger::find(const std::string& fileName) {
    auto statement =
        Statement::prepare(database_.durable(), std::string(kSelectDrivers) + "WHERE file_name=?");
    if (!statement) return tl::unexpected(statement.error());
    const Result<bool> row = statement->add(fileName).step();
    if (!row) return tl::unexpected(row.error());
    return *row ? std::optional(recordOf(*statement)) : std::nullopt;
}

Result<> SqliteDriverLedger::store(const DriverRecord& record) {
    auto statement = Statement::prepare(
        database_.durable(),
        "INSERT INTO drivers(file_name, version, applied_md5, previous_md5, checked_size, "
        "checked_nanoseconds) VALUES(?,?,?,?,?,?) ON CONFLICT(file_name) DO UPDATE SET "
        "version=excluded.version, applied_md5=excluded.applied_md5, "
        "previous_md5=excluded.previous_md5, checked_size=excluded.checked_size, "
        "checked_nanoseconds=excluded.checked_nanoseconds");
    if (!statement) return tl::unexpected(statement.error());
    statement->add(record.fileName).add(std::int64_t{record.version}).add(record.appliedMd5);
    statement->add(record.previousMd5).add(static_cast<std::int64_t>(record.checkedSize));
    if (auto written = statement->add(record.checkedNanoseconds).run(); !written)
        return inContext("cannot record " + record.fileName, written.error());
    return {};
}

Result<std::vector<DriverRecord>> SqliteDriverLedger::all() {
    auto statement =
        Statement::prepare(database_.durable(), std::string(kSelectDrivers) + "ORDER BY file_name");
    if (!statement) return tl::unexpected(statement.error());
    std::vector<DriverRecord> records;
    for (;;) {
        const Result<bool> row = statement->step();
        if (!row) return tl::unexpected(row.error());
        if (!*row) return records;
        records.push_back(recordOf(*statement));
    }
}

}  // namespace overseer
