#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "common/result.h"

class IProject;

namespace overseer {

class HostedAgent;
class IdleWatch;
class RunJournal;
class Scheduler;

/// The update runs of agents: starts them as a person asks, and has the journal keep account of
/// every one, whoever started it. I/O thread only.
class UpdateRuns {
  public:
    /// What it stands on; all of it outlives this.
    struct Surroundings {
        IProject& project;
        Scheduler& scheduler;
        RunJournal& journal;
        IdleWatch& idle;
    };

    explicit UpdateRuns(const Surroundings& surroundings) : surroundings_(surroundings) {}

    /// Whether this command or event makes an agent start a run.
    static bool startsRun(const std::string& command);
    bool startsRun(std::uint32_t eventId) const;
    bool isForced(std::uint32_t eventId) const;

    /// To be called before the agent is entered for a run: what becomes of it is kept from here on.
    void about(HostedAgent& agent, bool forced);
    /// Starts a run: not forced by the command, forced by delivering the forced daily event.
    Result<> start(HostedAgent& agent, bool forced);

  private:
    Surroundings surroundings_;
};

}  // namespace overseer
