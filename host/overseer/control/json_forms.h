#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "control/control_records.h"

/// How the records look as JSON. Members whose value is not known are null, never left out; moments
/// are ISO 8601 in UTC.
namespace overseer::control {

using Json = nlohmann::ordered_json;

Json toJson(const HostInformation& host);
Json toJson(const AgentInformation& agent);
Json toJson(const VariableInformation& variable);
Json toJson(const HistoryRecord& record);
Json toJson(const Notification& notification);
Json toJson(const ScheduledEvent& event);
Json toJson(const DriverInformation& driver);
Json toJson(const PlacedDriver& placed);
Json toJson(const RestoredDriver& restored);
Json toJson(const FileOutcome& file);
Json toJson(const CatalogueContact& contact);
/// The run with its counts by outcome, and with its files when `files`.
Json toJson(const RunReport& report, bool files);
/// The settings node `xml`: its name, the text of each child by name, and the node itself.
Json settingsToJson(const std::string& agent, const std::string& xml);

/// One line of text, without a line feed. Bytes that are not UTF-8 are replaced, never refused.
std::string toLine(const Json& json);

}  // namespace overseer::control
