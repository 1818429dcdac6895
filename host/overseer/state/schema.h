#pragma once

#include <array>
#include <optional>
#include <string>

#include "common/result.h"

struct sqlite3;

/// The layout of the database, in one place: it is created from here and checked against here.
namespace overseer::schema {

/// Kept as user_version. Raised with every change of a table.
inline constexpr int kVersion = 1;

struct Table {
    const char* name;
    const char* columns;  ///< names in the order of the definition, as a list for INSERT
    const char* definition;
};

/// In the order in which they are carried over out of a damaged database.
extern const std::array<Table, 6> kTables;

/// Makes all tables in an empty database and sets its version.
Result<> create(sqlite3* connection);

/// What is wrong with the tables, nothing when they are as `create` makes them. Errors are those of
/// reading.
Result<std::optional<std::string>> check(sqlite3* connection);

}  // namespace overseer::schema
