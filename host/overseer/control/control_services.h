#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/result.h"
#include "control/run_report.h"

namespace overseer::control {

struct HostInformation {
    std::string version;  ///< major.minor.build
    std::string root;     ///< absolute path of the controller root
    int processId = 0;
    Instant started{};  ///< of this process image: a restart in place begins anew
};

/// An agent that the host was told to load.
struct AgentInformation {
    std::string name;  ///< by which all resources below address it
    std::uint32_t deviceId = 0;
    std::string library;  ///< path of the plug-in
    bool loaded = false;
    std::string problem;                         ///< why it is not loaded, else empty
    std::vector<std::string> plainCommands;      ///< without an answer
    std::vector<std::string> answeringCommands;  ///< answer with a node
};

struct VariableInformation {
    std::string owner;  ///< agent or device that registered it
    std::uint32_t id = 0;
    std::string name;
    std::string type;  ///< "number", "string" or "boolean"
    std::string value;
    bool readOnly = false;
    bool hidden = false;
    std::string description;
};

struct HistoryRecord {
    std::uint64_t number = 0;  ///< ascending, never used twice
    Instant at{};
    std::string owner;
    std::string text;
    std::string category;
    std::string subcategory;
    std::string result;
};

struct HistoryQuery {
    std::optional<Instant> since;  ///< records of that moment and later
    std::size_t limit = 1000;      ///< the newest so many
};

/// What was sent to user interfaces: a node, or a message of the host.
struct Notification {
    std::uint64_t number = 0;
    Instant at{};
    std::string source;   ///< agent or device, empty for the host itself
    std::string xml;      ///< the node as text, empty for a message
    std::string message;  ///< empty for a node
    int severity = 0;     ///< of the message; 0 is information
};

/// A page of the notifications kept for replay.
struct NotificationPage {
    std::uint64_t oldest = 0;  ///< number of the oldest kept, newest + 1 when none is
    std::uint64_t newest = 0;  ///< last number given out, 0 when none was yet
    std::vector<Notification> entries;
};

struct ScheduledEvent {
    std::uint32_t id = 0;
    std::string name;
    std::string owner;  ///< whose entry it is
    std::string description;
    bool enabled = true;
    bool hidden = false;
    unsigned int intervalDays = 1;
    std::optional<Instant> next;       ///< nothing when it will not fire any more
    std::optional<Instant> lastFired;  ///< nothing when it never did
    std::vector<std::string> listeners;
};

struct DeviceInformation {
    std::uint32_t id = 0;
    std::string name;
};

/// One driver file of the controller.
struct DriverInformation {
    std::string file;
    bool agent = false;  ///< the file of a packaged agent
    std::vector<DeviceInformation> devices;
    int installedVersion = 0;           ///< of the last successful apply, 0 when there was none
    std::optional<int> versionInPlace;  ///< of the file as it lies there; nothing when unreadable
    std::string appliedMd5;             ///< lower-case hexadecimal, empty when none is kept
    std::string previousMd5;            ///< of what `restore` can go back to, empty when none is
    std::optional<FileOutcome> lastOutcome;
    std::optional<Instant> lastOutcomeAt;
};

/// What a restore put back.
struct RestoredDriver {
    std::string file;
    int version = 0;
    bool previous = false;  ///< the package before the last applied one, else the last applied one
};

/// When the catalogue last answered, and last did not.
struct CatalogueContact {
    std::optional<Instant> reached;
    std::optional<Instant> failed;
    std::string failure;  ///< why it last failed, kept after it was reached again
};

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
    /// Puts back the last applied package where the file in place was never applied, else the
    /// previous one, and applies it. `file` is any text.
    virtual Result<RestoredDriver> restore(const std::string& file) = 0;
};

}  // namespace overseer::control
