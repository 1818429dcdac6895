#include <algorithm>
#include <nlohmann/json.hpp>

#include "control/flat_object.h"
#include "control/resource_handlers.h"

// What belongs to one agent: its commands, settings, runs and status.
namespace overseer::control {
namespace {

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::optional<AgentInformation> findAgent(const Call& call) {
    for (AgentInformation& agent : call.services.agents()) {
        if (agent.name == call.arguments.front()) {
            return std::move(agent);
        }
    }
    return std::nullopt;
}

Response noSuchAgent(const Call& call) {
    return refusal(404, "no_such_agent",
                   "there is no agent \"" + call.arguments.front() + "\" here");
}

/// True when the settings say in so many words that automatic updating is off; an agent that has
/// no such setting cannot be switched off.
bool isSwitchedOff(const std::string& agent, const std::string& settings) {
    const Json values = settingsToJson(agent, settings).at("values");
    const auto enabled = values.find("auto_update_enabled");
    if (enabled == values.end()) {
        return false;
    }
    const std::string text = enabled->get<std::string>();
    return text.empty() || std::string_view("1tTyY").find(text.front()) == std::string_view::npos;
}

Response runOf(const RunReport& report) {
    return jsonResponse(toJson(report, true));
}

Json nextRunsOf(const AgentInformation& agent, const std::vector<ScheduledEvent>& schedule) {
    Json next = Json::array();
    for (const ScheduledEvent& event : schedule) {
        if (event.enabled && event.next && contains(event.listeners, agent.name)) {
            const Json shown = toJson(event);
            next.push_back({{"id", event.id}, {"name", event.name}, {"at", shown.at("next")}});
        }
    }
    return next;
}

}  // namespace

Answer listAgents(const Call& call) {
    Json list = Json::array();
    for (const AgentInformation& agent : call.services.agents()) {
        list.push_back(toJson(agent));
    }
    return jsonResponse({{"agents", std::move(list)}});
}

Answer runCommand(const Call& call) {
    const auto agent = findAgent(call);
    if (!agent) {
        return noSuchAgent(call);
    }
    const std::string& command = call.arguments.back();
    if (!contains(agent->plainCommands, command) && !contains(agent->answeringCommands, command)) {
        return refusal(404, "no_such_command",
                       "agent \"" + agent->name + "\" knows no command \"" + command + "\"");
    }
    const auto parameters = readFlatObject(call.request.body);
    if (!parameters) {
        return refusal(400, "bad_body", parameters.error().message);
    }
    const auto xml = call.services.runCommand(agent->name, command, *parameters);
    if (!xml) {
        return refusal(422, "command_failed", command + ": " + xml.error().message);
    }
    if (!xml->has_value()) {
        return Response{204, {}, {}, {}};
    }
    return Response{200, "application/xml", **xml, {}};
}

Answer showSettings(const Call& call) {
    if (!findAgent(call)) {
        return noSuchAgent(call);
    }
    const std::string& agent = call.arguments.front();
    return jsonResponse(settingsToJson(agent, call.services.settings(agent)));
}

Answer startRun(const Call& call) {
    if (!findAgent(call)) {
        return noSuchAgent(call);
    }
    const auto body = readFlatObject(call.request.body);
    if (!body) {
        return refusal(400, "bad_body", body.error().message);
    }
    const std::string& agent = call.arguments.front();
    const auto member = body->find("forced");
    const bool given = member != body->end();
    if (body->size() > (given ? 1U : 0U) ||
        (given && member->second != "true" && member->second != "false")) {
        return refusal(400, "bad_body", "a run takes one member, \"forced\": true or false");
    }
    const bool forced = given && member->second == "true";
    if (!forced && isSwitchedOff(agent, call.services.settings(agent))) {
        return refusal(409, "switched_off",
                       "automatic updating is switched off; switch it on, or force the run");
    }
    const auto last = call.services.lastRun(agent);
    if (last && !last->finished) {
        return refusal(409, "run_in_flight", "a run is already in flight");
    }
    const auto started = call.services.startRun(agent, forced);
    if (!started) {
        return refusal(422, "run_failed", started.error().message);
    }
    return jsonResponse({{"id", *started}}, 202);
}

Answer showLastRun(const Call& call) {
    if (!findAgent(call)) {
        return noSuchAgent(call);
    }
    const std::string& agent = call.arguments.front();
    const auto last = call.services.lastRun(agent);
    if (!last) {
        return refusal(404, "no_run", "agent \"" + agent + "\" has not run yet");
    }
    const auto wanted = call.request.query.find("wait");
    if (wanted == call.request.query.end()) {
        return runOf(*last);
    }
    const auto limit = waitLimit(call.request);
    if (!limit || wanted->second != "finished") {
        return badQuery(limit ? Error{"\"wait\" understands \"finished\" only"} : limit.error());
    }
    const auto ready = [agent](ControlServices& services) -> std::optional<Response> {
        // A report lists thousands of files: looked at only once it can be the last.
        if (!services.networkIdle()) return std::nullopt;
        const auto report = services.lastRun(agent);
        return report && report->finished ? std::optional(runOf(*report)) : std::nullopt;
    };
    const auto expired = [agent](ControlServices& services) {
        const auto report = services.lastRun(agent);
        return report ? runOf(*report) : refusal(404, "no_run", "the run is gone");
    };
    return Wait{ready, expired, *limit};
}

Answer showStatus(const Call& call) {
    const std::vector<ScheduledEvent> schedule = call.services.schedule();
    Json list = Json::array();
    for (const AgentInformation& agent : call.services.agents()) {
        const auto last = call.services.lastRun(agent.name);
        list.push_back({{"agent", agent.name},
                        {"loaded", agent.loaded},
                        {"problem", toJson(agent).at("problem")},
                        {"lastRun", last ? toJson(*last, false) : Json(nullptr)},
                        {"nextRuns", nextRunsOf(agent, schedule)},
                        {"catalogue", toJson(call.services.catalogueContact(agent.name))}});
    }
    return jsonResponse({{"host", toJson(call.services.host())},
                         {"networkIdle", call.services.networkIdle()},
                         {"agents", std::move(list)}});
}

}  // namespace overseer::control
