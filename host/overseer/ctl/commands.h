#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/session.h"

/// The commands of `overseerctl`. Each prints what it has to say and returns the exit code.
namespace overseer::ctl {

// agent_commands.cpp
/// @param assignments  "param=value" or "param=@file" each
int runAgentCommand(Session& session, const std::string& name,
                    const std::vector<std::string>& assignments);
int switchAutoUpdate(Session& session, bool enabled);
int showSettings(Session& session);

// exclusion.cpp
enum class ExclusionChange { kAdd, kRemove };
int changeExclusion(Session& session, ExclusionChange change,
                    const std::vector<std::string>& files);
int listExclusion(Session& session);

// update.cpp
int runUpdate(Session& session, bool forced);

// setup.cpp
struct SetupOptions {
    bool xml = false;  ///< the agent's own node instead of a table
    std::uint64_t timeoutSeconds = 600;
};
int showSetup(Session& session, const SetupOptions& options);

// add_agent.cpp
struct AddAgentOptions {
    std::string name;     ///< the agent's, in the project
    std::string file;     ///< its package; empty for NAME.nvz
    std::string library;  ///< plug-in in the package; empty for the one its manifest names
    std::string version = "latest";
};
int addAgent(Session& session, const AddAgentOptions& options);

// restore.cpp
int restoreDriver(Session& session, const std::string& file, bool exclude);

// evaluate.cpp
struct EvaluateOptions {
    std::string name;  ///< of the installed driver, where it is not the file's own
    bool xml = false;  ///< the agent's answer as it is
};
int evaluateDrivers(Session& session, const std::vector<std::string>& files,
                    const EvaluateOptions& options);

// install.cpp
struct InstallOptions {
    bool yes = false;      ///< overwrites without asking
    bool restart = false;  ///< restarts the host where a driver needs it
};
int installDrivers(Session& session, const std::vector<std::string>& files,
                   const InstallOptions& options);

// events.cpp
struct EventOptions {
    bool follow = false;
    std::optional<std::uint64_t> from;
};
int showEvents(Session& session, const EventOptions& options);

// listings.cpp
struct HistoryOptions {
    std::uint64_t limit = 1000;
    std::string since;  ///< "YYYY-MM-DD" or "YYYY-MM-DD HH:MM:SS", local time; empty for all
};
int showHistory(Session& session, const HistoryOptions& options);
int showVariables(Session& session);
int showDrivers(Session& session);
int showSchedule(Session& session);
int fireEvent(Session& session, std::uint64_t id);

// status.cpp
int showStatus(Session& session);

}  // namespace overseer::ctl
