#include "state/schedule_store.h"

#include <sqlite3.h>

#include <boost/date_time/gregorian/gregorian.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <exception>
#include <optional>

namespace overseer {
namespace {

namespace gregorian = boost::gregorian;
namespace posix_time = boost::posix_time;

std::string dateText(const gregorian::date& date) {
    return date.is_special() ? std::string() : gregorian::to_iso_extended_string(date);
}

std::optional<posix_time::ptime> timeOf(const std::string& text) {
    try {
        const posix_time::ptime time = posix_time::from_iso_extended_string(text);
        return time.is_special() ? std::nullopt : std::optional(time);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

/// No date for a text that is none: at worst an occurrence comes again.
gregorian::date dateOf(const std::string& text) {
    try {
        return text.empty() ? gregorian::date() : gregorian::from_simple_string(text);
    } catch (const std::exception&) {
        return {};
    }
}

/// Nothing for a row that no entry of ours makes; its owner makes a new one when it is missing.
std::optional<StoredScheduleEntry> entryOf(const Statement& row) {
    const std::optional<posix_time::ptime> start = timeOf(row.text(7));
    const std::optional<posix_time::ptime> end = timeOf(row.text(8));
    const std::int64_t interval = row.integer(6);
    const std::int64_t id = row.integer(0);
    if (!start || !end || interval < 1 || interval > UINT32_MAX || id < 1 || id > UINT32_MAX)
        return std::nullopt;
    StoredScheduleEntry entry;
    entry.id = static_cast<std::uint32_t>(id);
    entry.name = row.text(1);
    entry.deviceId = static_cast<std::uint32_t>(row.integer(2));
    entry.description = row.text(3);
    entry.enabled = row.integer(4) != 0;
    entry.hidden = row.integer(5) != 0;
    entry.intervalDays = static_cast<unsigned int>(interval);
    entry.start = *start;
    entry.end = *end;
    entry.lastOccurrence = dateOf(row.text(9));
    entry.lastDelivery = row.integer(10);
    return entry;
}

}  // namespace

Result<std::vector<StoredScheduleEntry>> ScheduleStore::all() {
    auto statement = Statement::prepare(
        database_.durable(),
        "SELECT id, name, device_id, description, enabled, hidden, interval_days, start, end, "
        "last_occurrence, last_delivery FROM schedule ORDER BY id");
    if (!statement) return tl::unexpected(statement.error());
    std::vector<StoredScheduleEntry> entries;
    for (;;) {
        const Result<bool> row = statement->step();
        if (!row) return tl::unexpected(row.error());
        if (!*row) return entries;
        if (std::optional<StoredScheduleEntry> entry = entryOf(*statement))
            entries.push_back(std::move(*entry));
    }
}

Result<std::uint32_t> ScheduleStore::add(const StoredScheduleEntry& entry) {
    auto statement = Statement::prepare(
        database_.durable(),
        "INSERT INTO schedule(name, device_id, description, enabled, hidden, interval_days, start, "
        "end, last_occurrence, last_delivery) VALUES(?,?,?,?,?,?,?,?,?,?)");
    if (!statement) return tl::unexpected(statement.error());
    statement->add(entry.name).add(std::int64_t{entry.deviceId}).add(entry.description);
    statement->add(std::int64_t{entry.enabled}).add(std::int64_t{entry.hidden});
    statement->add(std::int64_t{entry.intervalDays});
    statement->add(posix_time::to_iso_extended_string(entry.start));
    statement->add(posix_time::to_iso_extended_string(entry.end));
    statement->add(dateText(entry.lastOccurrence)).add(entry.lastDelivery);
    if (auto written = statement->run(); !written)
        return inContext("cannot store the schedule entry " + entry.name, written.error());
    const sqlite3_int64 id = sqlite3_last_insert_rowid(database_.durable());
    if (id < 1 || id > UINT32_MAX) return failure("the schedule has no more ids");
    return static_cast<std::uint32_t>(id);
}

Result<> ScheduleStore::update(const StoredScheduleEntry& entry) {
    auto statement = Statement::prepare(
        database_.durable(),
        "UPDATE schedule SET name=?, enabled=?, hidden=?, last_occurrence=?, last_delivery=? "
        "WHERE id=?");
    if (!statement) return tl::unexpected(statement.error());
    statement->add(entry.name).add(std::int64_t{entry.enabled}).add(std::int64_t{entry.hidden});
    statement->add(dateText(entry.lastOccurrence)).add(entry.lastDelivery);
    if (auto written = statement->add(std::int64_t{entry.id}).run(); !written)
        return inContext("cannot store the schedule entry " + entry.name, written.error());
    return {};
}

}  // namespace overseer
