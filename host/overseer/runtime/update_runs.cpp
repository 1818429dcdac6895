#include "runtime/update_runs.h"

#include <nv/overseer.h>
#include <nv/text.h>

#include <string_view>

#include "runtime/hosted_agent.h"
#include "runtime/idle_watch.h"
#include "services/run_journal.h"
#include "services/scheduler.h"

namespace overseer {

namespace {

constexpr std::string_view kCommand = "EXECUTE_AUTO_UPDATE";
constexpr const char* kDailyEvent = "Driver and Agent Auto Update Event";
constexpr const char* kForcedDailyEvent = "Driver and Agent Forced Auto Update Event";
constexpr const char* kExcludedFiles = "excluded_files";
constexpr const char* kAutoUpdateEnabled = "auto_update_enabled";

}  // namespace

bool UpdateRuns::startsRun(const std::string& command) {
    return command == kCommand;
}

bool UpdateRuns::isForced(std::uint32_t eventId) const {
    return surroundings_.scheduler.FindEventId(kForcedDailyEvent) == eventId;
}

bool UpdateRuns::startsRun(std::uint32_t eventId) const {
    return isForced(eventId) || surroundings_.scheduler.FindEventId(kDailyEvent) == eventId;
}

void UpdateRuns::about(HostedAgent& agent, bool forced) {
    const nv::XmlNode::Ptr settings = agent.persistedNode();
    // An agent that is switched off ignores all but the forced event: nothing begins.
    if (!forced && settings && settings->ChildExists(kAutoUpdateEnabled) &&
        !settings->GetChildDataBool(kAutoUpdateEnabled)) {
        return;
    }
    RunStart start;
    start.forced = forced;
    surroundings_.project.AddDriverFileNames(start.files);
    surroundings_.project.AddAgentFileNames(start.files);
    if (settings) {
        for (const std::string& name :
             StringToVector(settings->GetChildData(kExcludedFiles), ",", false)) {
            if (start.files.count(name) != 0) start.excluded.insert(name);
        }
    }
    surroundings_.journal.runStarted(agent.name(), start);
}

Result<> UpdateRuns::start(HostedAgent& agent, bool forced) {
    if (!forced) {
        about(agent, false);
        Result<std::optional<std::string>> started = agent.runCommand(std::string(kCommand), {});
        surroundings_.idle.workMayHaveStarted();
        if (!started) {
            surroundings_.journal.runFailed(agent.name(), started.error().message);
            return tl::unexpected(started.error());
        }
        return {};
    }
    const std::uint32_t eventId = surroundings_.scheduler.FindEventId(kForcedDailyEvent);
    if (eventId == 0) {
        return failure("the schedule holds no \"{}\", so a forced run cannot be started",
                       kForcedDailyEvent);
    }
    Result<std::size_t> fired = surroundings_.scheduler.fire(eventId);
    if (!fired) return tl::unexpected(fired.error());
    return {};
}

}  // namespace overseer
