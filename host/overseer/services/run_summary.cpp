#include "services/run_summary.h"

#include <nlohmann/json.hpp>

namespace overseer {
namespace {

using Json = nlohmann::json;

Json timeOrNull(const std::optional<UtcMilliseconds>& time) {
    return time ? Json(*time) : Json();
}

std::optional<UtcMilliseconds> timeOf(const Json& json) {
    return json.is_null() ? std::nullopt : std::optional(json.get<UtcMilliseconds>());
}

std::optional<FileOutcome> outcomeOf(const std::string& name) {
    for (const FileOutcome outcome : kAllFileOutcomes)
        if (nameOf(outcome) == name) return outcome;
    return std::nullopt;
}

Json toJson(const FileResult& file) {
    Json json{{"name", file.name},          {"before", file.versionBefore},
              {"after", file.versionAfter}, {"outcome", nameOf(file.outcome)},
              {"reason", file.reason},      {"milliseconds", nullptr}};
    if (file.milliseconds) json["milliseconds"] = *file.milliseconds;
    return json;
}

FileResult fileOf(const Json& json) {
    FileResult file;
    file.name = json.at("name");
    file.versionBefore = json.at("before");
    file.versionAfter = json.at("after");
    file.outcome = outcomeOf(json.at("outcome")).value_or(FileOutcome::kNotOffered);
    file.reason = json.at("reason");
    if (!json.at("milliseconds").is_null())
        file.milliseconds = json.at("milliseconds").get<std::uint64_t>();
    return file;
}

Json toJson(const RunSummary& run) {
    Json files = Json::array();
    for (const FileResult& file : run.files) files.push_back(toJson(file));
    return {{"forced", run.forced},
            {"started", run.started},
            {"ended", timeOrNull(run.ended)},
            {"files", files},
            {"queryFailures", run.queryFailures}};
}

RunSummary summaryOf(const Json& json) {
    RunSummary run;
    run.forced = json.at("forced");
    run.started = json.at("started");
    run.ended = timeOf(json.at("ended"));
    for (const Json& file : json.at("files")) run.files.push_back(fileOf(file));
    run.queryFailures = json.at("queryFailures").get<std::vector<std::string>>();
    return run;
}

}  // namespace

std::string_view nameOf(FileOutcome outcome) {
    switch (outcome) {
        case FileOutcome::kUpdated:
            return "updated";
        case FileOutcome::kCurrent:
            return "current";
        case FileOutcome::kHeldBack:
            return "held back";
        case FileOutcome::kFailed:
            return "failed";
        case FileOutcome::kExcluded:
            return "excluded";
        case FileOutcome::kNotOffered:
            return "not offered";
    }
    return "unknown";
}

std::map<FileOutcome, std::size_t> RunSummary::counts() const {
    std::map<FileOutcome, std::size_t> counts;
    for (const FileOutcome outcome : kAllFileOutcomes) counts[outcome] = 0;
    for (const FileResult& file : files) ++counts[file.outcome];
    return counts;
}

std::string toJsonText(const RunRecord& record) {
    const Json json{{"lastRun", record.lastRun ? toJson(*record.lastRun) : Json()},
                    {"contact",
                     {{"lastReached", timeOrNull(record.contact.lastReached)},
                      {"lastFailure", timeOrNull(record.contact.lastFailure)},
                      {"lastFailureReason", record.contact.lastFailureReason}}}};
    // File names may hold any bytes; JSON may not.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<RunRecord> runRecordFromJsonText(const std::string& text) {
    try {
        const Json json = Json::parse(text);
        RunRecord record;
        if (!json.at("lastRun").is_null()) record.lastRun = summaryOf(json.at("lastRun"));
        const Json& contact = json.at("contact");
        record.contact.lastReached = timeOf(contact.at("lastReached"));
        record.contact.lastFailure = timeOf(contact.at("lastFailure"));
        record.contact.lastFailureReason = contact.at("lastFailureReason");
        return record;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

}  // namespace overseer
