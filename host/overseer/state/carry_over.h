#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "common/result.h"

struct sqlite3;

namespace overseer {

/// Copies every row that can still be read in the database file `damaged` into the empty tables of
/// `fresh`, then adds the persisted nodes that are missing from their copies. A file that cannot be
/// read at all gives no rows. All of it is one transaction.
/// @return what came over, as in "2 of persisted_nodes, 31 of history"; errors are those of writing
Result<std::string> carryOver(const boost::filesystem::path& damaged,
                              const boost::filesystem::path& copies, sqlite3* fresh);

}  // namespace overseer
