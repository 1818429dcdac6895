#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "control/run_report.h"

/// What the resources of the control interface show: plain records, filled by the host.
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
    bool inPlace = false;               ///< the file lies in its folder
    int installedVersion = 0;           ///< of the last successful apply, 0 when there was none
    std::optional<int> versionInPlace;  ///< of the file as it lies there; nothing when unreadable
    std::string appliedMd5;             ///< lower-case hexadecimal, empty when none is kept
    std::string previousMd5;            ///< of what `restore` can go back to, empty when none is
    std::optional<FileOutcome> lastOutcome;
    std::optional<Instant> lastOutcomeAt;
};

/// A driver file that was put in place.
struct PlacedDriver {
    std::string file;
    int version = 0;      ///< that its manifest states
    std::string library;  ///< of an agent's package: the plug-in that is loaded at the next start
    bool added = false;   ///< it is new to the project
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

}  // namespace overseer::control
