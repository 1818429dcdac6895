#include "state/sqlite_driver_ledger.h"

namespace overseer {
namespace {

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

Result<> SqliteDriverLedger::readAll() {
    if (read_) return {};
    auto statement = Statement::prepare(
        database_.durable(),
        "SELECT file_name, version, applied_md5, previous_md5, checked_size, checked_nanoseconds "
        "FROM drivers");
    if (!statement) return tl::unexpected(statement.error());
    for (;;) {
        const Result<bool> row = statement->step();
        if (!row) return tl::unexpected(row.error());
        if (!*row) break;
        DriverRecord record = recordOf(*statement);
        records_.insert_or_assign(record.fileName, std::move(record));
    }
    read_ = true;
    return {};
}

Result<std::optional<DriverRecord>> SqliteDriverLedger::find(const std::string& fileName) {
    if (auto read = readAll(); !read) return tl::unexpected(read.error());
    const auto found = records_.find(fileName);
    return found == records_.end() ? std::nullopt : std::optional(found->second);
}

Result<> SqliteDriverLedger::store(const DriverRecord& record) {
    if (auto read = readAll(); !read) return read;
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
    records_.insert_or_assign(record.fileName, record);
    return {};
}

Result<std::vector<DriverRecord>> SqliteDriverLedger::all() {
    if (auto read = readAll(); !read) return tl::unexpected(read.error());
    std::vector<DriverRecord> records;
    records.reserve(records_.size());
    for (const auto& [name, record] : records_) records.push_back(record);
    return records;
}

}  // namespace overseer
