#include "state/database.h"

#include <sqlite3.h>

#include <unistd.h>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "common/system_failure.h"
#include "root/placement.h"
#include "state/agent_copies.h"
#include "state/carry_over.h"
#include "state/schema.h"

namespace overseer {
namespace {

namespace fs = boost::filesystem;

enum class Condition { kMissing, kSound, kDamaged };

struct Finding {
    Condition condition = Condition::kSound;
    std::string reason;
};

fs::path beside(const fs::path& file, const char* suffix) {
    return file.string() + suffix;
}

Result<Connection> connect(const fs::path& file, int flags) {
    sqlite3* opened = nullptr;
    const int code =
        sqlite3_open_v2(file.c_str(), &opened, flags | SQLITE_OPEN_PRIVATECACHE, nullptr);
    Connection connection(opened, [](sqlite3* closing) { sqlite3_close_v2(closing); });
    if (code != SQLITE_OK)
        return databaseFailure(opened, fmt::format("cannot open {}", file.string()));
    sqlite3_busy_timeout(opened, Database::kLockWaitMilliseconds);
    return connection;
}

/// The first value that a query answers, as text.
Result<std::string> firstText(sqlite3* connection, std::string_view sql) {
    auto statement = Statement::prepare(connection, sql);
    if (!statement) return tl::unexpected(statement.error());
    const Result<bool> row = statement->step();
    if (!row) return tl::unexpected(row.error());
    return *row ? statement->text(0) : std::string();
}

/// Tells a file that is no sound database from one that cannot be used for another reason.
Result<Finding> judge(sqlite3* connection, const Error& cause) {
    const int code = sqlite3_errcode(connection);
    // What is asked here is always well put: an error without a name comes from the file.
    if (code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_ERROR)
        return Finding{Condition::kDamaged, sqlite3_errmsg(connection)};
    if (code == SQLITE_BUSY || code == SQLITE_LOCKED)
        return failure(
            "another program keeps {} locked (database is locked): close it, then start "
            "again",
            sqlite3_db_filename(connection, "main"));
    return tl::unexpected(cause);
}

Result<Finding> examineTables(sqlite3* connection, const fs::path& file) {
    const Result<std::string> version = firstText(connection, "PRAGMA user_version");
    if (!version) return judge(connection, version.error());
    if (std::stoi(*version) > schema::kVersion)
        return failure(
            "{} was written by a newer version of this program (schema {}, known {}); "
            "install that, or put a backup back",
            file.string(), *version, schema::kVersion);
    const Result<std::optional<std::string>> wrong = schema::check(connection);
    if (!wrong) return judge(connection, wrong.error());
    if (*wrong) return Finding{Condition::kDamaged, **wrong};
    return Finding{};
}

Result<Finding> examineOpened(sqlite3* connection, const fs::path& file) {
    // What was found must lie there as it was found: closing must not fold the log into it.
    sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    const Result<std::string> integrity = firstText(connection, "PRAGMA integrity_check(1)");
    if (!integrity) return judge(connection, integrity.error());
    if (sqlite3_db_readonly(connection, "main") == 1)
        return failure("{} may not be written; check its owner and mode", file.string());
    if (*integrity != "ok") return Finding{Condition::kDamaged, *integrity};
    Result<Finding> tables = examineTables(connection, file);
    if (!tables || tables->condition != Condition::kSound) return tables;
    if (auto writable = execute(connection, "BEGIN IMMEDIATE; ROLLBACK"); !writable)
        return judge(connection, writable.error());
    return Finding{};
}

Result<Finding> examine(const fs::path& file) {
    boost::system::error_code error;
    const fs::file_status status = fs::status(file, error);
    if (status.type() == fs::file_not_found) return Finding{Condition::kMissing, "it was missing"};
    if (status.type() != fs::regular_file)
        return failure("{} is not a regular file; move it away", file.string());
    if (fs::file_size(file, error) == 0 && !error)
        return Finding{Condition::kDamaged, "it was empty"};
    const Result<Connection> connection = connect(file, SQLITE_OPEN_READWRITE);
    if (!connection) return tl::unexpected(connection.error());
    return examineOpened(connection->get(), file);
}

Result<> move(const fs::path& from, const fs::path& to) {
    if (std::rename(from.c_str(), to.c_str()) == 0) return {};
    return failure("cannot rename {} to {}: {}", from.string(), to.string(),
                   std::generic_category().message(errno));
}

fs::path freeName(const fs::path& wanted) {
    fs::path name = wanted;
    boost::system::error_code error;
    for (int number = 2; fs::exists(fs::symlink_status(name, error)); ++number)
        name = fmt::format("{}-{}", wanted.string(), number);
    return name;
}

/// Moves the damaged file and its companions away. A log that stayed behind would be applied to the
/// next database.
Result<> setAside(const fs::path& file, const fs::path& aside) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
        boost::system::error_code error;
        if (!fs::exists(fs::symlink_status(beside(file, suffix), error))) continue;
        if (auto moved = move(beside(file, suffix), beside(aside, suffix)); !moved) return moved;
    }
    return {};
}

/// Makes a database beside the one in place, with all that can be saved, and returns what that was.
Result<std::string> prepareFresh(const fs::path& file, const fs::path& fresh,
                                 const fs::path& copies) {
    boost::system::error_code error;
    for (const char* suffix : {"", "-journal", "-wal", "-shm"})
        fs::remove(beside(fresh, suffix), error);
    const Result<Connection> connection =
        connect(fresh, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!connection) return tl::unexpected(connection.error());
    if (auto created = schema::create(connection->get()); !created)
        return tl::unexpected(created.error());
    return carryOver(file, copies, connection->get());
}

/// @return what to tell of it; nothing for a first start
Result<std::optional<std::string>> establish(const fs::path& file, const fs::path& copies,
                                             const Finding& finding, UtcMilliseconds now) {
    const fs::path fresh = beside(file, ".fresh");
    const Result<std::string> carried = prepareFresh(file, fresh, copies);
    if (!carried) return inContext("cannot make a new database", carried.error());
    const fs::path aside = freeName(beside(file, ".damaged-").string() + utcFileNamePart(now));
    if (auto moved = setAside(file, aside); !moved) return tl::unexpected(moved.error());
    if (auto placed = move(fresh, file); !placed) return tl::unexpected(placed.error());
    if (auto flushed = flushFolder(file.parent_path()); !flushed)
        return tl::unexpected(flushed.error());
    const std::string saved = carried->empty() ? "nothing" : *carried;
    if (finding.condition == Condition::kDamaged)
        return fmt::format("the database {} was damaged ({}); it was set aside as {}; saved: {}",
                           file.string(), finding.reason, aside.filename().string(), saved);
    if (carried->empty()) return std::nullopt;
    return fmt::format("the database {} was missing and was made anew; saved: {}", file.string(),
                       saved);
}

Result<Connection> connectFor(const fs::path& file, const char* synchronous) {
    Result<Connection> connection = connect(file, SQLITE_OPEN_READWRITE);
    if (!connection) return connection;
    sqlite3* const opened = connection->get();
    const Result<std::string> mode = firstText(opened, "PRAGMA journal_mode=WAL");
    if (!mode) return tl::unexpected(mode.error());
    if (*mode != "wal")
        return failure("{} lies on a file system without write-ahead mode", file.string());
    // A controller is a small machine: the log stays short, the page cache small.
    const std::string settings = fmt::format(
        "PRAGMA synchronous={}; PRAGMA cache_size=-256; PRAGMA temp_store=MEMORY;"
        "PRAGMA wal_autocheckpoint=250; PRAGMA journal_size_limit=1048576",
        synchronous);
    if (auto set = execute(opened, settings.c_str()); !set) return tl::unexpected(set.error());
    return connection;
}

}  // namespace

Database::Database(Connection durable, Connection relaxed, fs::path copiesFolder)
    : durable_(std::move(durable)),
      relaxed_(std::move(relaxed)),
      copiesFolder_(std::move(copiesFolder)) {}

Database::~Database() = default;

Result<std::unique_ptr<Database>> Database::open(const fs::path& stateFolder, UtcMilliseconds now) {
    const fs::path file = stateFolder / kFileName;
    const fs::path copies = stateFolder / kCopiesFolder;
    if (::access(stateFolder.c_str(), W_OK) != 0) {
        return systemFailure(
            "the folder " + stateFolder.string() +
                " must be writable for the database; check its owner, mode and mount",
            errno);
    }
    const Result<Finding> finding = examine(file);
    if (!finding) return inContext("cannot use the database", finding.error());
    Result<std::optional<std::string>> repair = std::optional<std::string>();
    if (finding->condition != Condition::kSound) repair = establish(file, copies, *finding, now);
    if (!repair) return tl::unexpected(repair.error());
    Result<Connection> durable = connectFor(file, "FULL");
    if (!durable) return tl::unexpected(durable.error());
    Result<Connection> relaxed = connectFor(file, "NORMAL");
    if (!relaxed) return tl::unexpected(relaxed.error());
    std::unique_ptr<Database> database(
        new Database(std::move(*durable), std::move(*relaxed), copies));
    database->repair_ = std::move(*repair);
    return database;
}

}  // namespace overseer
