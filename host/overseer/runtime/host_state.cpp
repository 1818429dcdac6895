#include "runtime/host_state.h"

#include <nvhost/environment.h>

#include <utility>

#include "common/log.h"

namespace overseer {

HostState::HostState(std::unique_ptr<Database> opened, Project loaded)
    : database(std::move(opened)),
      project(std::move(loaded)),
      ledger(*database),
      nodes(*database),
      schedule(*database),
      records(*database),
      runs(*database),
      history(records, nv::hosting::environment().clock) {}

Result<std::unique_ptr<HostState>> HostState::open(const ControllerRoot& root) {
    Result<Project> project = Project::load(root.projectFile());
    if (!project) return tl::unexpected(project.error());
    const std::shared_ptr<nv::hosting::Clock>& clock = nv::hosting::environment().clock;
    Result<std::unique_ptr<Database>> database =
        Database::open(root.state(), toUtcMilliseconds(clock->wallTime()));
    if (!database) return tl::unexpected(database.error());

    std::unique_ptr<HostState> state(new HostState(std::move(*database), std::move(*project)));
    Result<std::unique_ptr<Notifications>> notifications = Notifications::open(state->runs, clock);
    if (!notifications) return tl::unexpected(notifications.error());
    state->notifications = std::move(*notifications);
    if (const std::optional<std::string>& repair = state->database->repair()) {
        log::error(*repair);
        state->history.record("", {*repair, "Overseer", "State", "Repaired"});
    }
    return state;
}

}  // namespace overseer
