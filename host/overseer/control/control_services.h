#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/result.h"
#include "control/control_records.h"

namespace overseer::control {

/// Tells the control interface that there is something new; called on the I/O thread.
class NotificationObserver {
  public:
    virtual ~NotificationObserver() = default;
    /// One or more notifications were added. Cheap: it reads nothing and writes nothing inline.
    virtual void notificationsAdded() = 0;
};

/// What the control interface asks of the host. Called on the I/O thread only, between two entries
/// into an agent, never from inside one; none of these may throw. An `agent` is a name out of
/// `agents()`, and `id` one out of `schedule()`: the caller has checked.
class ControlServices {
  public:
    virtual ~ControlServices() = default;

    virtual HostInformation host() = 0;
    virtual std::vector<AgentInformation> agents() = 0;

    /// Runs a command of that agent, whichever dispatcher has it.
    /// @return the answer node as XML text, nothing for a plain command, a null or an empty node;
    ///         an error for what the command threw, or that no dispatcher knows the name
    virtual Result<std::optional<std::string>> runCommand(
        const std::string& agent, const std::string& command,
        const std::map<std::string, std::string>& parameters) = 0;

    /// Starts a run: not forced as the command EXECUTE_AUTO_UPDATE does, forced as its scheduled
    /// event does. Before it returns, `lastRun` gives the new run and `networkIdle` is false unless
    /// the run is over already.
    /// @return the id of the run
    virtual Result<std::uint64_t> startRun(const std::string& agent, bool forced) = 0;
    /// The current or the last run of the agent, whoever started it; nothing before the first. It
    /// is finished at the latest when `networkIdle` answers true.
    virtual std::optional<RunReport> lastRun(const std::string& agent) = 0;
    /// No transfer, retry delay, queued handler or child.
    virtual bool networkIdle() = 0;

    /// The persisted node of the agent as XML text, as it would be stored now; empty for none.
    virtual std::string settings(const std::string& agent) = 0;
    virtual CatalogueContact catalogueContact(const std::string& agent) = 0;

    virtual std::vector<VariableInformation> variables() = 0;
    /// In ascending order.
    virtual Result<std::vector<HistoryRecord>> history(const HistoryQuery& query) = 0;

    /// Up to `limit` notifications from number `from` on, ascending. Numbers only ever grow, over a
    /// restart of the host too, as far as it can tell.
    virtual NotificationPage notifications(std::uint64_t from, std::size_t limit) = 0;
    /// Sets the one observer; null takes it away. It must outlive its time here.
    virtual void observeNotifications(NotificationObserver* observer) = 0;

    virtual std::vector<ScheduledEvent> schedule() = 0;
    /// Delivers the event to its listeners at once, idle or not.
    virtual Result<> fire(std::uint32_t id) = 0;

    virtual Result<std::vector<DriverInformation>> drivers() = 0;
    /// The driver file of that name; nothing when it is neither in the project nor in its folder.
    /// `file` is any text.
    virtual Result<std::optional<DriverInformation>> driver(const std::string& file) = 0;
    /// Puts a copy of the file at `path` in place under the name `file`, and gives it a device, or
    /// an agent's package its place among the agents, unless it has one. It is not applied. Both
    /// are any text.
    virtual Result<PlacedDriver> place(const std::string& file, const std::string& path) = 0;
    /// Puts back the last applied package where the file in place was never applied, else the
    /// previous one, and applies it. `file` is any text.
    virtual Result<RestoredDriver> restore(const std::string& file) = 0;
};

}  // namespace overseer::control
