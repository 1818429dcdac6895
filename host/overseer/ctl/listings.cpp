#include <fmt/format.h>
#include <time.h>
#include <functional>
#include <nlohmann/json.hpp>
#include <ostream>

#include "control/http_message.h"
#include "control/instant_text.h"
#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

// Listings of the host's services: one resource, one table each.
namespace overseer::ctl {
namespace {

struct Listing {
    std::string target;
    const char* member;  ///< of the answer, that holds the rows
    std::vector<Table::Column> columns;
    std::function<std::vector<Cell>(const Json&)> row;
};

int print(Session& session, const Listing& listing) {
    const auto json = getJson(session, listing.target);
    if (!json) {
        return report(session, json.error());
    }
    if (session.json) {
        session.console.out << json->dump(2) << "\n";
        return kSuccess;
    }
    Table table(listing.columns);
    for (const Json& entry : json->at(listing.member)) {
        table.add(listing.row(entry));
    }
    table.print(session.console.out, session.console.coloured);
    return kSuccess;
}

/// The moment that a user writes in local time; nothing for any other text.
std::optional<control::Instant> localInstant(const std::string& text) {
    for (const char* form : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm parts{};
        const char* rest = strptime(text.c_str(), form, &parts);
        if (rest != nullptr && *rest == '\0') {
            parts.tm_isdst = -1;
            const int day = parts.tm_mday;
            const std::time_t seconds = mktime(&parts);
            if (parts.tm_mday != day) return std::nullopt;  // 31 February became a day of March
            return control::Instant(std::chrono::seconds(seconds));
        }
    }
    return std::nullopt;
}

std::string versionInPlace(const Json& driver) {
    return driver.value("inPlace", true) ? numberOf(driver, "versionInPlace", "-") : "missing";
}

std::string devicesOf(const Json& driver) {
    std::string names;
    for (const Json& device : driver.at("devices")) {
        names += (names.empty() ? "" : ", ") + textOf(device, "name");
    }
    return driver.value("agent", false) ? "(agent)" : names;
}

Colour colourOfResult(const std::string& result) {
    if (result == "Failed") {
        return Colour::kRed;
    }
    return result == "Updated" || result == "Added" ? Colour::kGreen : Colour::kNone;
}

}  // namespace

int showHistory(Session& session, const HistoryOptions& options) {
    std::string target = fmt::format("/history?limit={}", options.limit);
    if (!options.since.empty()) {
        const auto since = localInstant(options.since);
        if (!since) {
            session.console.err << "overseerctl: --since takes YYYY-MM-DD or \"YYYY-MM-DD "
                                   "HH:MM:SS\"\n";
            return kUsage;
        }
        target += "&since=" + control::percentEncoded(control::toText(*since));
    }
    return print(session, {target,
                           "history",
                           {{"TIME"}, {"CATEGORY"}, {"SUBCATEGORY"}, {"RESULT"}, {"TEXT"}},
                           [](const Json& record) -> std::vector<Cell> {
                               const std::string result = textOf(record, "result");
                               return {{localTimeOf(record, "at")},
                                       {textOf(record, "category")},
                                       {textOf(record, "subcategory")},
                                       {result, colourOfResult(result)},
                                       {textOf(record, "text")}};
                           }});
}

int showVariables(Session& session) {
    return print(session, {"/variables",
                           "variables",
                           {{"OWNER"}, {"ID", true}, {"NAME"}, {"TYPE"}, {"VALUE"}},
                           [](const Json& variable) -> std::vector<Cell> {
                               return {{textOf(variable, "owner")},
                                       {numberOf(variable, "id")},
                                       {textOf(variable, "name")},
                                       {textOf(variable, "type")},
                                       {textOf(variable, "value")}};
                           }});
}

int showDrivers(Session& session) {
    return print(session, {"/drivers",
                           "drivers",
                           {{"FILE"},
                            {"INSTALLED", true},
                            {"IN PLACE", true},
                            {"DEVICES"},
                            {"LAST OUTCOME"},
                            {"RESTORE"}},
                           [](const Json& driver) -> std::vector<Cell> {
                               const Json& last = driver.at("lastOutcome");
                               return {{textOf(driver, "file")},
                                       {numberOf(driver, "installedVersion", "-")},
                                       {versionInPlace(driver)},
                                       {devicesOf(driver)},
                                       {last.is_null() ? "" : textOf(last, "outcome")},
                                       {textOf(driver, "previousMd5").empty() ? "" : "possible"}};
                           }});
}

int showSchedule(Session& session) {
    return print(session, {"/schedule",
                           "schedule",
                           {{"ID", true}, {"NAME"}, {"OWNER"}, {"NEXT"}, {"LAST FIRED"}},
                           [](const Json& event) -> std::vector<Cell> {
                               const bool enabled = event.value("enabled", false);
                               return {{numberOf(event, "id")},
                                       {textOf(event, "name")},
                                       {textOf(event, "owner")},
                                       {enabled ? localTimeOf(event, "next") : "disabled"},
                                       {localTimeOf(event, "lastFired")}};
                           }});
}

int fireEvent(Session& session, std::uint64_t id) {
    const auto reply = session.client.post(fmt::format("/schedule/{}/fire", id), "");
    if (!reply) {
        return report(session, reply.error());
    }
    const Json fired = Json::parse(reply->body, nullptr, false);
    session.console.out << "fired: " << printable(textOf(fired, "name")) << "\n";
    return kSuccess;
}

}  // namespace overseer::ctl
