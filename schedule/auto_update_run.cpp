// The update run: asks the catalogue for updates of every driver and agent in the project, in
// batches.
// Entered from the host when a daily event fires, and from its dispatcher. Leaves to
// catalogue/update_request.cpp, once for each batch, and ends before any answer. Writes no member.
#include <set>

#include "norvane_agent_driverupdate.h"

namespace {

/// Longest file list, in characters, that still makes a URL which every server takes.
constexpr std::size_t kLongestBatch = 1800;

}  // namespace

void norvane_agent_driverupdate::OnSchedulerEvent(unsigned int eventId) {
    constexpr int kInformation = 0;
    if (eventId == forcedAutoUpdateEventId) {
        GetOverseer()->ShowMessage("Starting scheduled Forced Auto Update...", kInformation);
        executeAutoUpdate(true);
        return;
    }
    if (!autoUpdateEnabled) return;
    GetOverseer()->ShowMessage("Starting scheduled Auto Update...", kInformation);
    executeAutoUpdate(false);
}

void norvane_agent_driverupdate::OnCmdExecuteAutoUpdate(const ICmdMessage&) {
    if (autoUpdateEnabled) executeAutoUpdate(false);
}

void norvane_agent_driverupdate::executeAutoUpdate(bool forced) {
    DRIVERUPDATE_DEBUG("agent_driverupdate: Executing Auto Update");
    std::set<std::string> fileNames;
    const IProject& project = GetOverseer()->GetProject();
    project.AddDriverFileNames(fileNames);
    project.AddAgentFileNames(fileNames);

    std::string batch;
    bool first = true;
    for (const std::string& fileName : fileNames) {
        const std::string item = escapeFileName(fileName);
        const std::size_t grown = first ? item.size() + 2 : batch.size() + item.size() + 3;
        const bool full = grown > kLongestBatch;
        // A first name that is too long by itself sends the empty batch ahead.
        if (full) {
            updateDrivers(batch, forced);
            batch.clear();
        }
        if (!first && !full) batch += ',';
        batch += '"' + item + '"';
        first = false;
    }
    // Also when nothing is left: the run of an empty project is one question about no file.
    updateDrivers(batch, forced);
}
