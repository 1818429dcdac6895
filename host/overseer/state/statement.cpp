#include "state/statement.h"

#include <sqlite3.h>

namespace overseer {
namespace {

void finalize(sqlite3_stmt* statement) {
    sqlite3_finalize(statement);
}

void rollBack(sqlite3* connection) {
    // Fails only where SQLite has rolled back by itself, as it does on a full disk.
    sqlite3_exec(connection, "ROLLBACK", nullptr, nullptr, nullptr);
}

}  // namespace

tl::unexpected<Error> databaseFailure(sqlite3* connection, std::string_view action) {
    const int systemError = sqlite3_system_errno(connection);
    const int code = sqlite3_errcode(connection);
    const bool tellSystemError =
        systemError != 0 && (code == SQLITE_CANTOPEN || code == SQLITE_IOERR);
    const char* file = sqlite3_db_filename(connection, "main");
    auto failed =
        failure("{}: {}{}{}", action, sqlite3_errmsg(connection),
                tellSystemError ? fmt::format(" (error {} of the system)", systemError) : "",
                file != nullptr && *file != '\0' ? fmt::format(" [{}]", file) : "");
    failed.value().ofMachine = true;
    return failed;
}

Result<> execute(sqlite3* connection, const char* sql) {
    if (sqlite3_exec(connection, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        return databaseFailure(connection, "the database refused a statement");
    return {};
}

Result<Statement> Statement::prepare(sqlite3* connection, std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, sql.data(), static_cast<int>(sql.size()), &statement,
                           nullptr) != SQLITE_OK)
        return databaseFailure(connection, "the database refused a statement");
    return Statement(Handle(statement, finalize));
}

Statement& Statement::add(std::int64_t value) {
    const int code = sqlite3_bind_int64(get(), ++bound_, value);
    if (code != SQLITE_OK) bindFailure_ = code;
    return *this;
}

Statement& Statement::add(std::string_view text) {
    // A null pointer would store NULL where an empty text is meant.
    const char* data = text.data() == nullptr ? "" : text.data();
    const int code =
        sqlite3_bind_text64(get(), ++bound_, data, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    if (code != SQLITE_OK) bindFailure_ = code;
    return *this;
}

Result<bool> Statement::step() {
    if (bindFailure_ != 0)
        return failure("a value does not fit into the database: {}", sqlite3_errstr(bindFailure_));
    const int code = sqlite3_step(get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    return databaseFailure(sqlite3_db_handle(get()), "the database failed");
}

Result<> Statement::run() {
    for (;;) {
        const Result<bool> row = step();
        if (!row) return tl::unexpected(row.error());
        if (!*row) return {};
    }
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(get(), column);
}

std::string Statement::text(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(get(), column));
    const int size = sqlite3_column_bytes(get(), column);
    return bytes == nullptr ? std::string() : std::string(bytes, static_cast<std::size_t>(size));
}

Result<Transaction> Transaction::begin(sqlite3* connection) {
    if (auto begun = execute(connection, "BEGIN IMMEDIATE"); !begun)
        return tl::unexpected(begun.error());
    return Transaction(Rollback(connection, rollBack));
}

Result<> Transaction::commit() {
    sqlite3* connection = connection_.get();
    if (auto committed = execute(connection, "COMMIT"); !committed) return committed;
    static_cast<void>(connection_.release());
    return {};
}

}  // namespace overseer
