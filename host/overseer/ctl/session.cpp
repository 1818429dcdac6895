#include "ctl/session.h"

#include <fmt/format.h>
#include <time.h>
#include <algorithm>
#include <cctype>
#include <istream>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "control/http_message.h"
#include "control/instant_text.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

namespace overseer::ctl {
namespace {

Failure unreadable(const std::string& target) {
    return {
        Failure::Kind::kBroken, {}, fmt::format("the host's answer to {} cannot be read", target)};
}

bool knows(const Json& agent, std::string_view command) {
    for (const char* list : {"plainCommands", "answeringCommands"}) {
        for (const Json& name : agent.at(list)) {
            if (name == command) {
                return true;
            }
        }
    }
    return command.empty();
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

}  // namespace

Failure failureBecause(std::string reason) {
    return {Failure::Kind::kBroken, {}, std::move(reason)};
}

int report(const Session& session, const Failure& failure) {
    session.console.err << "overseerctl: " << printable(failure.message) << std::endl;
    switch (failure.kind) {
        case Failure::Kind::kNoHost:
            return kNoHost;
        case Failure::Kind::kInterrupted:
            return kInterrupted;
        case Failure::Kind::kRefused:
        case Failure::Kind::kBroken:
            return kFailure;
    }
    return kFailure;
}

Answered<Json> getJson(Session& session, const std::string& target) {
    const auto reply = session.client.get(target);
    if (!reply) {
        return tl::unexpected(reply.error());
    }
    Json json = Json::parse(reply->body, nullptr, false);
    if (!json.is_object()) {
        return tl::unexpected(unreadable(target));
    }
    return json;
}

Answered<std::string> chooseAgent(Session& session, std::string_view command) {
    if (!session.agent.empty()) {
        return session.agent;
    }
    const auto json = getJson(session, "/agents");
    if (!json) {
        return tl::unexpected(json.error());
    }
    std::vector<std::string> fitting;
    for (const Json& agent : json->at("agents")) {
        if (agent.at("loaded").get<bool>() && knows(agent, command)) {
            fitting.push_back(textOf(agent, "name"));
        }
    }
    if (fitting.size() == 1) {
        return fitting.front();
    }
    const std::string what =
        command.empty() ? std::string("is loaded") : fmt::format("knows the command {}", command);
    return tl::unexpected(
        Failure{Failure::Kind::kBroken,
                {},
                fitting.empty() ? fmt::format("no agent {} here", what)
                                : fmt::format("more than one agent {}; name one with --agent: {}",
                                              what, joined(fitting))});
}

Answered<Reply> sendCommand(Session& session, const std::string& agent, const std::string& command,
                            const std::map<std::string, std::string>& parameters) {
    for (const auto& [name, value] : parameters) {
        if (!isUtf8(name) || !isUtf8(value)) {
            return tl::unexpected(
                Failure{Failure::Kind::kBroken,
                        {},
                        fmt::format("parameter {} is not UTF-8; convert it first", name)});
        }
    }
    const std::string target = agentTarget(agent, "/commands/" + control::percentEncoded(command));
    return session.client.post(target, Json(parameters).dump());
}

bool isConfirmed(Session& session, const std::string& question) {
    session.console.out << question << " [y/N] " << std::flush;
    std::string answer;
    std::getline(session.console.in, answer);
    if (!session.console.in) session.console.out << std::endl;  // nobody pressed Enter
    std::transform(answer.begin(), answer.end(), answer.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return answer == "y" || answer == "yes";
}

bool isUtf8(const std::string& text) {
    try {
        return !Json(text).dump().empty();
    } catch (const Json::exception&) {
        return false;
    }
}

std::string agentTarget(const std::string& agent, std::string_view rest) {
    return fmt::format("/agents/{}{}", control::percentEncoded(agent), rest);
}

std::string textOf(const Json& object, const char* member) {
    const auto found = object.find(member);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::string numberOf(const Json& object, const char* member, std::string_view nothing) {
    const auto found = object.find(member);
    return found != object.end() && found->is_number() && *found != 0 ? found->dump()
                                                                      : std::string(nothing);
}

std::string localTimeOf(const Json& object, const char* member) {
    const auto instant = control::instantFromText(textOf(object, member));
    if (!instant) {
        return {};
    }
    const auto whole = std::chrono::floor<std::chrono::seconds>(*instant);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(whole);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", parts.tm_year + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

}  // namespace overseer::ctl
