#include "services/run_journal.h"

#include <fmt/format.h>

#include <optional>
#include <pugixml.hpp>
#include <string_view>
#include <utility>

#include "common/log.h"

namespace overseer {
namespace {

// What the agent tells, letter for letter.
constexpr const char* kUpdatedNode = "driver_updated";
constexpr const char* kRefusedNode = "driver_update_failed";
constexpr const char* kNameChild = "driver_name";
constexpr const char* kReasonChild = "reason";
constexpr const char* kCurrentReason = "no update available";
constexpr const char* kCategory = "Driver Update Agent";
constexpr const char* kSubcategory = "Auto Update";
constexpr const char* kUpdatedResult = "Updated";
constexpr const char* kFailedResult = "Failed";
constexpr std::string_view kUpdatedText = "Driver Updated: ";
constexpr std::string_view kFailedText = "Driver Update Failed";
constexpr std::string_view kErrorPrefix = "agent_driverupdate: ";
constexpr std::string_view kErrorCause = "Error from SOLR: ";
constexpr const char* kUnspecificReason = "SOLR Error";
constexpr const char* kRefusedByHost = "the host refused it, see the log";

struct Failure {
    std::string file;
    std::string reason;
};

/// "Driver Update Failed (REASON): FILE" or "Driver Update Failed: FILE"
std::optional<Failure> failureIn(const std::string& text) {
    if (!text.starts_with(kFailedText)) return std::nullopt;
    const std::string rest = text.substr(kFailedText.size());
    if (rest.starts_with(": ")) return Failure{rest.substr(2), kRefusedByHost};
    const std::size_t close = rest.find("): ");
    if (!rest.starts_with(" (") || close == std::string::npos) return std::nullopt;
    return Failure{rest.substr(close + 3), rest.substr(2, close - 2)};
}

}  // namespace

RunJournal::RunJournal(RunStore& store, std::shared_ptr<nv::hosting::Clock> clock,
                       VersionOf versionOf)
    : store_(store), clock_(std::move(clock)), versionOf_(std::move(versionOf)) {}

void RunJournal::runStarted(const std::string& agent, const RunStart& start) {
    const auto [found, isNew] = running_.try_emplace(agent);
    if (isNew) found->second.summary.started = now();
    take(found->second, start);
}

void RunJournal::take(Run& run, const RunStart& start) const {
    run.summary.forced = run.summary.forced || start.forced;
    run.excluded = start.excluded;
    for (const std::string& name : start.files) {
        if (run.files.contains(name)) continue;
        fileOf(run, name).versionBefore = versionOf_(name);
    }
}

void RunJournal::runFailed(const std::string& agent, const std::string& reason) {
    queryFailed(agent, reason);
}

Result<> RunJournal::networkIdle() {
    Result<> outcome;
    for (auto& [agent, run] : std::exchange(running_, {}))
        if (auto ended = end(agent, run); !ended) outcome = ended;
    return outcome;
}

void RunJournal::notified(const Notification& notification) {
    const bool concernsRuns = notification.xml.find(kUpdatedNode) != std::string::npos ||
                              notification.xml.find(kRefusedNode) != std::string::npos;
    if (!concernsRuns) return;
    pugi::xml_document document;
    document.load_buffer(notification.xml.data(), notification.xml.size());
    const pugi::xml_node node = document.document_element();
    const std::string_view name = node.name();
    const std::string file = node.child_value(kNameChild);
    const std::string reason = node.child_value(kReasonChild);
    if (name == kUpdatedNode) {
        report(notification.agent, file, FileOutcome::kUpdated, {});
    } else if (name == kRefusedNode && !node.child(kNameChild)) {
        queryFailed(notification.agent, reason);
    } else if (name == kRefusedNode) {
        // Only an answer of the catalogue leads here.
        if (const Result<RunRecord*> record = recordOf(notification.agent))
            (*record)->contact.lastReached = now();
        const bool current = reason == kCurrentReason;
        report(notification.agent, file, current ? FileOutcome::kCurrent : FileOutcome::kHeldBack,
               current ? std::string() : reason);
    }
}

void RunJournal::recorded(const HistoryRecord& record) {
    if (record.category != kCategory || record.subcategory != kSubcategory) return;
    if (record.result == kUpdatedResult && record.text.starts_with(kUpdatedText)) {
        report(record.agent, record.text.substr(kUpdatedText.size()), FileOutcome::kUpdated, {});
    } else if (record.result == kFailedResult) {
        if (const std::optional<Failure> failed = failureIn(record.text))
            report(record.agent, failed->file, FileOutcome::kFailed, failed->reason);
    }
}

void RunJournal::measured(const Metric& metric) {
    if (!metric.duration || metric.value < 0) return;
    for (auto& [agent, run] : running_) {
        const auto found = run.files.find(metric.name);
        if (found != run.files.end())
            found->second.milliseconds = static_cast<std::uint64_t>(metric.value);
    }
}

void RunJournal::downloadFailed(const std::string& file, const std::string& reason) {
    for (auto& [agent, run] : running_) {
        if (run.files.contains(file)) run.downloadFailures[file] = reason;
    }
}

void RunJournal::errorLogged(const std::string& text) {
    const std::size_t cause = text.find(kErrorCause);
    if (!text.starts_with(kErrorPrefix) || cause == std::string::npos) return;
    const std::lock_guard lock(errorMutex_);
    errorDetail_ = text.substr(cause + kErrorCause.size());
}

std::string RunJournal::takeErrorDetail() {
    const std::lock_guard lock(errorMutex_);
    return std::exchange(errorDetail_, {});
}

void RunJournal::report(const std::string& agent, const std::string& file, FileOutcome outcome,
                        const std::string& reason) {
    const auto running = running_.find(agent);
    if (running == running_.end() || file.empty()) return;
    if (isBeyondListing(running->second, file, outcome)) return;
    FileResult& result = fileOf(running->second, file);
    if (outcome < result.outcome) return;
    result.outcome = outcome;
    result.reason = reason;
    const auto cause = running->second.downloadFailures.extract(file);
    if (cause && outcome == FileOutcome::kFailed) result.reason += ": " + cause.mapped();
}

bool RunJournal::isBeyondListing(Run& run, const std::string& file, FileOutcome outcome) {
    // What a download came of is listed always: it costs the catalogue one to say so.
    if (outcome >= FileOutcome::kFailed || run.files.contains(file)) return false;
    if (run.strangers++ < kStrangersListed) return false;
    if (run.strangers == kStrangersListed + 1)
        log::warn(fmt::format(
            "the catalogue answers with more than {} files that nobody asked for; the run's table "
            "leaves out the rest",
            kStrangersListed));
    return true;
}

void RunJournal::queryFailed(const std::string& agent, const std::string& reason) {
    std::string full = reason;
    std::string detail = takeErrorDetail();
    // The transfer went well, and the answer said no.
    if (detail == "Success") detail = "the catalogue refused; the log names the status";
    if (reason == kUnspecificReason && !detail.empty()) full += " (" + detail + ")";
    if (const Result<RunRecord*> record = recordOf(agent)) {
        (*record)->contact.lastFailure = now();
        (*record)->contact.lastFailureReason = full;
    }
    if (const auto running = running_.find(agent); running != running_.end())
        running->second.summary.queryFailures.push_back(full);
}

FileResult& RunJournal::fileOf(Run& run, const std::string& name) {
    FileResult& file = run.files[name];
    file.name = name;
    return file;
}

Result<> RunJournal::end(const std::string& agent, Run& run) {
    const Result<RunRecord*> record = recordOf(agent);
    if (!record) return tl::unexpected(record.error());
    run.summary.ended = now();
    for (auto& [name, file] : run.files) {
        settle(run, file);
        run.summary.files.push_back(file);
    }
    // A catalogue that offers none of the files answers all the same, without leaving a trace.
    if (run.summary.queryFailures.empty()) (*record)->contact.lastReached = run.summary.ended;
    (*record)->lastRun = run.summary;
    return store_.store(agent, toJsonText(**record));
}

void RunJournal::settle(const Run& run, FileResult& file) const {
    file.versionAfter = versionOf_(file.name);
    if (file.outcome == FileOutcome::kUpdated && file.versionAfter <= file.versionBefore) {
        file.reason = fmt::format("its package is of version {}, not newer", file.versionAfter);
        log::warn(fmt::format(
            "{} was updated, but its package is of version {} and version {} was installed: the "
            "catalogue names a higher one than the package has, and every run will fetch it again. "
            "Mend the catalogue's entry, or `overseerctl exclude add {}`",
            file.name, file.versionAfter, file.versionBefore, file.name));
    }
    if (file.outcome != FileOutcome::kNotOffered) return;
    if (run.excluded.contains(file.name)) {
        file.outcome = FileOutcome::kExcluded;
    } else if (!run.summary.queryFailures.empty()) {
        file.outcome = FileOutcome::kFailed;
        file.reason = run.summary.queryFailures.front();
    }
}

Result<RunRecord> RunJournal::find(const std::string& agent) {
    const Result<RunRecord*> record = recordOf(agent);
    if (!record) return tl::unexpected(record.error());
    const auto running = running_.find(agent);
    if (running == running_.end()) return **record;
    RunRecord found{running->second.summary, (*record)->contact};
    for (const auto& [name, file] : running->second.files) found.lastRun->files.push_back(file);
    return found;
}

Result<RunRecord*> RunJournal::recordOf(const std::string& agent) {
    if (const auto known = records_.find(agent); known != records_.end()) return &known->second;
    const Result<std::optional<std::string>> stored = store_.find(agent);
    if (!stored) return inContext("cannot read the last run of " + agent, stored.error());
    RunRecord record;
    // A text that is none of ours is as good as none: the next run writes it anew.
    if (*stored) record = runRecordFromJsonText(**stored).value_or(RunRecord());
    return &(records_[agent] = std::move(record));
}

UtcMilliseconds RunJournal::now() const {
    return toUtcMilliseconds(clock_->wallTime());
}

}  // namespace overseer
