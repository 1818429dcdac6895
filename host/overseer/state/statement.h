#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "common/result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace overseer {

/// An open SQLite database.
using Connection = std::unique_ptr<sqlite3, void (*)(sqlite3*)>;

/// The failure of the last call on `connection`, "ACTION: reason".
tl::unexpected<Error> databaseFailure(sqlite3* connection, std::string_view action);

/// Runs statements that yield no rows and take no values.
Result<> execute(sqlite3* connection, const char* sql);

/// One prepared statement. Texts and blobs that it hands out are copies; a failed bind shows in the
/// next step. I/O thread only.
class Statement {
  public:
    static Result<Statement> prepare(sqlite3* connection, std::string_view sql);

    /// Binds the next parameter, from the first one on.
    Statement& add(std::int64_t value);
    Statement& add(std::string_view text);
    /// Moves to the next row; false when there is none.
    Result<bool> step();
    /// Runs a statement whose rows, if any, nobody needs.
    Result<> run();

    /// Values of the row that `step` moved to, by column from 0.
    std::int64_t integer(int column) const;
    std::string text(int column) const;
    sqlite3_stmt* get() const { return statement_.get(); }

  private:
    using Handle = std::unique_ptr<sqlite3_stmt, void (*)(sqlite3_stmt*)>;
    explicit Statement(Handle statement) : statement_(std::move(statement)) {}

    Handle statement_;
    int bound_ = 0;
    int bindFailure_ = 0;
};

/// Several statements that count together or not at all: rolled back unless committed.
class Transaction {
  public:
    /// Takes the right to write at once, so that a failure shows here and not in the middle.
    static Result<Transaction> begin(sqlite3* connection);
    Result<> commit();

  private:
    using Rollback = std::unique_ptr<sqlite3, void (*)(sqlite3*)>;
    explicit Transaction(Rollback connection) : connection_(std::move(connection)) {}

    Rollback connection_;
};

}  // namespace overseer
