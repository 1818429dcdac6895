#include "runtime/control_backend.h"

#include <utility>

#include "runtime/agents.h"
#include "runtime/driver_desk.h"
#include "runtime/hosted_agent.h"
#include "runtime/idle_watch.h"
#include "runtime/update_runs.h"
#include "services/history.h"
#include "services/notifications.h"
#include "services/run_journal.h"
#include "services/scheduler.h"
#include "services/variables.h"

namespace overseer {

namespace {

control::Instant toInstant(UtcMilliseconds time) {
    return control::Instant(std::chrono::milliseconds(time));
}

std::optional<control::Instant> toInstant(const std::optional<UtcMilliseconds>& time) {
    return time ? std::optional(toInstant(*time)) : std::nullopt;
}

control::Outcome toOutcome(FileOutcome outcome) {
    switch (outcome) {
        case FileOutcome::kUpdated:
            return control::Outcome::kUpdated;
        case FileOutcome::kCurrent:
            return control::Outcome::kCurrent;
        case FileOutcome::kHeldBack:
            return control::Outcome::kHeldBack;
        case FileOutcome::kFailed:
            return control::Outcome::kFailed;
        case FileOutcome::kExcluded:
            return control::Outcome::kExcluded;
        case FileOutcome::kNotOffered:
            return control::Outcome::kNotOffered;
    }
    return control::Outcome::kFailed;
}

control::FileOutcome toFileOutcome(const FileResult& file) {
    control::FileOutcome outcome;
    outcome.file = file.name;
    outcome.versionBefore = file.versionBefore;
    outcome.versionAfter = file.versionAfter;
    outcome.outcome = toOutcome(file.outcome);
    outcome.reason = file.reason;
    if (file.milliseconds) outcome.milliseconds = static_cast<std::int64_t>(*file.milliseconds);
    return outcome;
}

control::RunReport toReport(const RunSummary& run) {
    control::RunReport report;
    // Two runs of an agent never begin in one millisecond: the first would still be under way.
    report.id = static_cast<std::uint64_t>(run.started);
    report.kind = run.forced ? control::RunKind::kForced : control::RunKind::kNormal;
    report.started = toInstant(run.started);
    report.finished = toInstant(run.ended);
    report.queryFailures = run.queryFailures;
    report.files.reserve(run.files.size());
    for (const FileResult& file : run.files) report.files.push_back(toFileOutcome(file));
    return report;
}

const char* typeName(NVTypes::VariableType type) {
    switch (type) {
        case NVTypes::VariableType::kNumber:
            return "number";
        case NVTypes::VariableType::kString:
            return "string";
        case NVTypes::VariableType::kBoolean:
            return "boolean";
    }
    return "string";
}

control::HistoryRecord toRecord(const HistoryRecord& record) {
    return {static_cast<std::uint64_t>(record.id),
            toInstant(record.time),
            record.agent,
            record.text,
            record.category,
            record.subcategory,
            record.result};
}

}  // namespace

ControlBackend::ControlBackend(const Surroundings& surroundings, control::HostInformation host)
    : surroundings_(surroundings), host_(std::move(host)) {
    surroundings_.notifications.observe([this](const Notification&) {
        if (observer_ != nullptr) observer_->notificationsAdded();
    });
}

std::string ControlBackend::ownerOf(std::uint32_t deviceId) const {
    const HostedAgent* agent = surroundings_.agents.find(deviceId);
    return agent != nullptr ? agent->name() : "device " + std::to_string(deviceId);
}

std::vector<control::AgentInformation> ControlBackend::agents() {
    std::vector<control::AgentInformation> list;
    for (const auto& agent : surroundings_.agents.all()) {
        control::AgentInformation information;
        information.name = agent->name();
        information.deviceId = agent->deviceId();
        information.library = agent->library().file().string();
        information.loaded = true;
        information.plainCommands = agent->plainCommands();
        information.answeringCommands = agent->answeringCommands();
        list.push_back(std::move(information));
    }
    for (const UnloadedAgent& agent : surroundings_.agents.unloaded()) {
        control::AgentInformation information;
        information.name = agent.name;
        information.deviceId = agent.deviceId;
        information.library = agent.library;
        information.problem = agent.problem;
        list.push_back(std::move(information));
    }
    return list;
}

Result<std::optional<std::string>> ControlBackend::runCommand(
    const std::string& agent, const std::string& command,
    const std::map<std::string, std::string>& parameters) {
    HostedAgent* hosted = surroundings_.agents.find(agent);
    if (hosted == nullptr) return failure("there is no agent {}", agent);
    if (UpdateRuns::startsRun(command)) surroundings_.runs.about(*hosted, false);
    Result<std::optional<std::string>> answer = hosted->runCommand(command, parameters);
    surroundings_.idle.workMayHaveStarted();
    return answer;
}

Result<std::uint64_t> ControlBackend::startRun(const std::string& agent, bool forced) {
    HostedAgent* hosted = surroundings_.agents.find(agent);
    if (hosted == nullptr) return failure("there is no agent {}", agent);
    if (Result<> started = surroundings_.runs.start(*hosted, forced); !started) {
        return tl::unexpected(started.error());
    }
    const std::optional<control::RunReport> run = lastRun(agent);
    if (!run) return failure("the agent {} did not start a run", agent);
    return run->id;
}

std::optional<control::RunReport> ControlBackend::lastRun(const std::string& agent) {
    const Result<RunRecord> record = surroundings_.journal.find(agent);
    if (!record || !record->lastRun) return std::nullopt;
    return toReport(*record->lastRun);
}

bool ControlBackend::networkIdle() {
    return surroundings_.idle.isIdle();
}

std::string ControlBackend::settings(const std::string& agent) {
    HostedAgent* hosted = surroundings_.agents.find(agent);
    if (hosted == nullptr) return {};
    const nv::XmlNode::Ptr node = hosted->persistedNode();
    return node ? node->ToText(true) : std::string();
}

control::CatalogueContact ControlBackend::catalogueContact(const std::string& agent) {
    const Result<RunRecord> record = surroundings_.journal.find(agent);
    control::CatalogueContact contact;
    if (!record) return contact;
    contact.reached = toInstant(record->contact.lastReached);
    contact.failed = toInstant(record->contact.lastFailure);
    contact.failure = record->contact.lastFailureReason;
    return contact;
}

std::vector<control::VariableInformation> ControlBackend::variables() {
    std::vector<control::VariableInformation> list;
    for (const DeviceVariable& variable : surroundings_.variables.list()) {
        const VariableDeclaration& declared = variable.declaration;
        list.push_back({ownerOf(variable.deviceId), declared.id, declared.name,
                        typeName(declared.type), declared.value, declared.readOnly, declared.hidden,
                        declared.description});
    }
    return list;
}

Result<std::vector<control::HistoryRecord>> ControlBackend::history(
    const control::HistoryQuery& query) {
    Result<std::vector<HistoryRecord>> records = surroundings_.history.store().last(query.limit);
    if (!records) return tl::unexpected(records.error());
    std::vector<control::HistoryRecord> list;
    list.reserve(records->size());
    for (const HistoryRecord& record : *records) {
        if (query.since && toInstant(record.time) < *query.since) continue;
        list.push_back(toRecord(record));
    }
    return list;
}

control::NotificationPage ControlBackend::notifications(std::uint64_t from, std::size_t limit) {
    control::NotificationPage page;
    page.oldest = surroundings_.notifications.oldestNumber();
    page.newest = surroundings_.notifications.lastNumber();
    for (const Notification& notification : surroundings_.notifications.page(from, limit)) {
        page.entries.push_back({notification.number, toInstant(notification.time),
                                notification.agent, notification.xml, "", 0});
    }
    return page;
}

void ControlBackend::observeNotifications(control::NotificationObserver* observer) {
    observer_ = observer;
}

std::vector<control::ScheduledEvent> ControlBackend::schedule() {
    std::vector<control::ScheduledEvent> list;
    for (const ScheduleListing& entry : surroundings_.scheduler.list()) {
        control::ScheduledEvent event;
        event.id = entry.id;
        event.name = entry.name;
        event.owner = ownerOf(entry.deviceId);
        event.enabled = entry.enabled;
        event.intervalDays = entry.intervalDays;
        event.next = toInstant(entry.next);
        event.lastFired = toInstant(entry.lastDelivery);
        for (const std::uint32_t listener : entry.listeners) {
            event.listeners.push_back(ownerOf(listener));
        }
        list.push_back(std::move(event));
    }
    return list;
}

Result<> ControlBackend::fire(std::uint32_t id) {
    Result<std::size_t> fired = surroundings_.scheduler.fire(id);
    if (!fired) return tl::unexpected(fired.error());
    return {};
}

Result<std::vector<control::DriverInformation>> ControlBackend::drivers() {
    Result<std::vector<control::DriverInformation>> list = surroundings_.drivers.listing().all();
    if (!list) return list;
    const Outcomes outcomes = lastOutcomes();
    for (control::DriverInformation& driver : *list) addOutcome(outcomes, driver);
    return list;
}

Result<std::optional<control::DriverInformation>> ControlBackend::driver(const std::string& file) {
    Result<std::optional<control::DriverInformation>> driver =
        surroundings_.drivers.listing().find(file);
    if (driver && *driver) addOutcome(lastOutcomes(), **driver);
    return driver;
}

ControlBackend::Outcomes ControlBackend::lastOutcomes() {
    Outcomes outcomes;
    for (const auto& agent : surroundings_.agents.all()) {
        const std::optional<control::RunReport> run = lastRun(agent->name());
        if (!run) continue;
        for (const control::FileOutcome& file : run->files) {
            outcomes[file.file] = {file, run->finished.value_or(run->started)};
        }
    }
    return outcomes;
}

void ControlBackend::addOutcome(const Outcomes& outcomes, control::DriverInformation& driver) {
    const auto found = outcomes.find(driver.file);
    // What a run found of a file that is gone by now tells nothing of the driver.
    if (found == outcomes.end() || !driver.inPlace) return;
    driver.lastOutcome = found->second.first;
    driver.lastOutcomeAt = found->second.second;
}

Result<control::PlacedDriver> ControlBackend::place(const std::string& file,
                                                    const std::string& path) {
    return surroundings_.drivers.place(file, path);
}

Result<control::RestoredDriver> ControlBackend::restore(const std::string& file) {
    return surroundings_.drivers.restore(file);
}

}  // namespace overseer
