#include "control/json_forms.h"

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include "control/instant_text.h"

namespace overseer::control {
namespace {

Json orNull(const std::optional<Instant>& instant) {
    return instant ? Json(toText(*instant)) : Json(nullptr);
}

Json orNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

template <typename Number>
Json orNull(const std::optional<Number>& number) {
    return number ? Json(*number) : Json(nullptr);
}

}  // namespace

Json toJson(const HostInformation& host) {
    return {{"version", host.version},
            {"root", host.root},
            {"processId", host.processId},
            {"started", toText(host.started)}};
}

Json toJson(const AgentInformation& agent) {
    return {{"name", agent.name},
            {"deviceId", agent.deviceId},
            {"library", agent.library},
            {"loaded", agent.loaded},
            {"problem", orNull(agent.problem)},
            {"plainCommands", agent.plainCommands},
            {"answeringCommands", agent.answeringCommands}};
}

Json toJson(const VariableInformation& variable) {
    return {{"owner", variable.owner},   {"id", variable.id},
            {"name", variable.name},     {"type", variable.type},
            {"value", variable.value},   {"readOnly", variable.readOnly},
            {"hidden", variable.hidden}, {"description", variable.description}};
}

Json toJson(const HistoryRecord& record) {
    return {{"number", record.number},     {"at", toText(record.at)},
            {"owner", record.owner},       {"text", record.text},
            {"category", record.category}, {"subcategory", record.subcategory},
            {"result", record.result}};
}

Json toJson(const Notification& notification) {
    return {{"number", notification.number},           {"at", toText(notification.at)},
            {"source", orNull(notification.source)},   {"xml", orNull(notification.xml)},
            {"message", orNull(notification.message)}, {"severity", notification.severity}};
}

Json toJson(const ScheduledEvent& event) {
    return {{"id", event.id},
            {"name", event.name},
            {"owner", event.owner},
            {"description", event.description},
            {"enabled", event.enabled},
            {"hidden", event.hidden},
            {"intervalDays", event.intervalDays},
            {"next", orNull(event.next)},
            {"lastFired", orNull(event.lastFired)},
            {"listeners", event.listeners}};
}

Json toJson(const FileOutcome& file) {
    return {{"file", file.file},
            {"versionBefore", file.versionBefore},
            {"versionAfter", file.versionAfter},
            {"outcome", std::string(toText(file.outcome))},
            {"reason", orNull(file.reason)},
            {"milliseconds", orNull(file.milliseconds)}};
}

Json toJson(const DriverInformation& driver) {
    Json devices = Json::array();
    for (const DeviceInformation& device : driver.devices) {
        devices.push_back({{"id", device.id}, {"name", device.name}});
    }
    return {{"file", driver.file},
            {"agent", driver.agent},
            {"devices", std::move(devices)},
            {"inPlace", driver.inPlace},
            {"installedVersion", driver.installedVersion},
            {"versionInPlace", orNull(driver.versionInPlace)},
            {"appliedMd5", orNull(driver.appliedMd5)},
            {"previousMd5", orNull(driver.previousMd5)},
            {"lastOutcome", driver.lastOutcome ? toJson(*driver.lastOutcome) : Json(nullptr)},
            {"lastOutcomeAt", orNull(driver.lastOutcomeAt)}};
}

Json toJson(const PlacedDriver& placed) {
    return {{"file", placed.file},
            {"version", placed.version},
            {"library", orNull(placed.library)},
            {"added", placed.added}};
}

Json toJson(const RestoredDriver& restored) {
    return {{"file", restored.file},
            {"version", restored.version},
            {"package", restored.previous ? "previous" : "applied"}};
}

Json toJson(const CatalogueContact& contact) {
    return {{"reached", orNull(contact.reached)},
            {"failed", orNull(contact.failed)},
            {"failure", orNull(contact.failure)}};
}

Json toJson(const RunReport& report, bool files) {
    Json counts = Json::object();
    for (const OutcomeCount& count : countOutcomes(report)) {
        counts[std::string(toText(count.outcome))] = count.files;
    }
    Json json = {{"id", report.id},
                 {"kind", report.kind == RunKind::kForced ? "forced" : "normal"},
                 {"started", toText(report.started)},
                 {"finished", orNull(report.finished)},
                 {"running", !report.finished.has_value()},
                 {"failed", hasFailures(report)},
                 {"counts", std::move(counts)},
                 {"queryFailures", report.queryFailures}};
    if (files) {
        Json& list = json["files"] = Json::array();
        for (const FileOutcome& file : report.files) {
            list.push_back(toJson(file));
        }
    }
    return json;
}

Json settingsToJson(const std::string& agent, const std::string& xml) {
    pugi::xml_document document;
    Json values = Json::object();
    const bool readable = static_cast<bool>(document.load_buffer(xml.data(), xml.size()));
    const pugi::xml_node root = readable ? document.document_element() : pugi::xml_node();
    for (const pugi::xml_node child : root.children()) {
        if (child.type() == pugi::node_element) {
            values[child.name()] = child.text().get();
        }
    }
    return {{"agent", agent},
            {"name", orNull(std::string(root.name()))},
            {"values", std::move(values)},
            {"xml", orNull(xml)}};
}

std::string toLine(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace overseer::control
