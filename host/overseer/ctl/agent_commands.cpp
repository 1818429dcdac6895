#include <fmt/format.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

// Commands to an agent, sent as they are, and the settings that they change.
namespace overseer::ctl {
namespace {

constexpr std::size_t kMaximumParameter = std::size_t(64) << 20;

Answered<std::string> readParameter(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    // Inserting nothing at all, as from an empty file, counts as a failure of `content` alone.
    if (!file || (content << file.rdbuf(), file.bad()) || std::filesystem::is_directory(path)) {
        return tl::unexpected(failureBecause(path + ": cannot be read"));
    }
    std::string text = content.str();
    if (text.size() > kMaximumParameter) {
        return tl::unexpected(failureBecause(path + ": larger than 64 MB, which no command takes"));
    }
    return text;
}

Answered<std::map<std::string, std::string>> readAssignments(
    const std::vector<std::string>& assignments) {
    std::map<std::string, std::string> parameters;
    for (const std::string& assignment : assignments) {
        const std::size_t sign = assignment.find('=');
        if (sign == std::string::npos || sign == 0) {
            return tl::unexpected(failureBecause(fmt::format(
                "\"{}\" is no parameter; write param=value or param=@file", assignment)));
        }
        std::string value = assignment.substr(sign + 1);
        if (!value.empty() && value.front() == '@') {
            auto content = readParameter(value.substr(1));
            if (!content) {
                return tl::unexpected(content.error());
            }
            value = std::move(*content);
        }
        parameters[assignment.substr(0, sign)] = std::move(value);
    }
    return parameters;
}

}  // namespace

int runAgentCommand(Session& session, const std::string& name,
                    const std::vector<std::string>& assignments) {
    const auto parameters = readAssignments(assignments);
    if (!parameters) {
        return report(session, parameters.error());
    }
    const auto agent = chooseAgent(session, name);
    if (!agent) {
        return report(session, agent.error());
    }
    const auto reply = sendCommand(session, *agent, name, *parameters);
    if (!reply) {
        return report(session, reply.error());
    }
    if (!reply->body.empty()) {
        session.console.out << reply->body << (reply->body.back() == '\n' ? "" : "\n");
    }
    return kSuccess;
}

int switchAutoUpdate(Session& session, bool enabled) {
    const auto agent = chooseAgent(session, "SET_STATE");
    if (!agent) {
        return report(session, agent.error());
    }
    const auto reply = sendCommand(session, *agent, "SET_STATE",
                                   {{"auto_update_enabled", enabled ? "true" : "false"}});
    if (!reply) {
        return report(session, reply.error());
    }
    session.console.out << "automatic updating is " << (enabled ? "on" : "off") << "\n";
    return kSuccess;
}

int showSettings(Session& session) {
    const auto agent = chooseAgent(session, "");
    if (!agent) {
        return report(session, agent.error());
    }
    const auto settings = getJson(session, agentTarget(*agent, "/settings"));
    if (!settings) {
        return report(session, settings.error());
    }
    if (session.json) {
        session.console.out << settings->dump(2) << "\n";
        return kSuccess;
    }
    Table table({{"SETTING"}, {"VALUE"}});
    for (const auto& [name, value] : settings->at("values").items()) {
        table.add({{name}, {value.get<std::string>()}});
    }
    table.print(session.console.out, session.console.coloured);
    return kSuccess;
}

}  // namespace overseer::ctl
