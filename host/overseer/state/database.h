#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <optional>
#include <string>

#include "common/result.h"
#include "state/statement.h"
#include "state/utc_time.h"

namespace overseer {

/// The controller's durable state: `overseer.db` in the state folder, in write-ahead mode.
///
/// Two connections, because SQLite's `synchronous` belongs to the connection: what must survive a
/// power cut is written through `durable` (FULL: flushed before a write returns), what may lose its
/// last moments through `relaxed` (NORMAL). Switching one connection back and forth would put the
/// guarantee at the mercy of every caller's order. Both are used by the I/O thread only, so neither
/// ever waits for the other. The stores take the connection that they need from here; the database
/// outlives them.
class Database {
  public:
    static constexpr const char* kFileName = "overseer.db";
    static constexpr const char* kCopiesFolder = "agents";
    /// How long a lock of another process (a person's `sqlite3`, a backup) is waited for.
    static constexpr int kLockWaitMilliseconds = 500;

    /// Opens the database in `stateFolder` (which exists), creating it when there is none.
    ///
    /// A damaged one is set aside as `overseer.db.damaged-YYYYMMDD-HHMMSS` with its -wal and -shm;
    /// the rows that can be read are carried over, and persisted nodes that are missing then come
    /// back from their copies in `agents/`: see `repair`. One that is locked, may not be written or
    /// has a newer schema is an error and stays as it is.
    static Result<std::unique_ptr<Database>> open(const boost::filesystem::path& stateFolder,
                                                  UtcMilliseconds now);

    /// Folds the log into the file; failures wait for the next start.
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    sqlite3* durable() const { return durable_.get(); }
    sqlite3* relaxed() const { return relaxed_.get(); }
    /// What was damaged, where it lies now and what was carried over, as one sentence for the log
    /// and the history; nothing when all was well.
    const std::optional<std::string>& repair() const { return repair_; }
    /// `agents/` beside the database, where persisted nodes are copied to.
    const boost::filesystem::path& copiesFolder() const { return copiesFolder_; }

  private:
    Database(Connection durable, Connection relaxed, boost::filesystem::path copiesFolder);

    Connection durable_;
    Connection relaxed_;
    boost::filesystem::path copiesFolder_;
    std::optional<std::string> repair_;
};

}  // namespace overseer
