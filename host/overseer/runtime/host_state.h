#pragma once

#include <memory>

#include "drivers/project.h"
#include "root/controller_root.h"
#include "services/history.h"
#include "services/notifications.h"
#include "state/database.h"
#include "state/history_store.h"
#include "state/persisted_nodes.h"
#include "state/run_store.h"
#include "state/schedule_store.h"
#include "state/sqlite_driver_ledger.h"

namespace overseer {

/// All that a controller root remembers, opened. I/O thread only.
struct HostState {
    /// Opens database and project. An error when one of them cannot serve; both are untouched then.
    /// A damaged database is repaired, and that is logged and recorded.
    static Result<std::unique_ptr<HostState>> open(const ControllerRoot& root);

    std::unique_ptr<Database> database;
    Project project;
    SqliteDriverLedger ledger;
    PersistedNodes nodes;
    ScheduleStore schedule;
    HistoryStore records;
    RunStore runs;
    std::unique_ptr<Notifications> notifications;
    History history;

  private:
    HostState(std::unique_ptr<Database> opened, Project loaded);
};

}  // namespace overseer
