#include <fmt/format.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <system_error>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

// Commands to an agent, sent as they are, and the settings that they change.
namespace overseer::ctl {
namespace {

constexpr std::size_t kMaximumParameter = std::size_t(64) << 20;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// Reads a file of any kind, a pipe too. Not with a stream of C++, which would read on after the
/// signal of a user who wants to leave.
Answered<std::string> readParameter(const Session& session, const std::string& path) {
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    std::string text;
    std::array<char, 65536> block{};
    std::size_t size = file ? block.size() : 0;
    while (size == block.size() && text.size() <= kMaximumParameter) {
        size = std::fread(block.data(), 1, block.size(), file.get());
        text.append(block.data(), size);
    }
    const int problem = !file || std::ferror(file.get()) != 0 ? errno : 0;
    if (session.interruption.requested()) {
        return tl::unexpected(Failure{Failure::Kind::kInterrupted, {}, "interrupted"});
    }
    if (problem != 0) {
        return tl::unexpected(failureBecause(
            fmt::format("{}: cannot be read: {}", path, std::generic_category().message(problem))));
    }
    if (text.size() > kMaximumParameter) {
        return tl::unexpected(failureBecause(path + ": larger than 64 MB, which no command takes"));
    }
    return text;
}

Answered<std::map<std::string, std::string>> readAssignments(
    const Session& session, const std::vector<std::string>& assignments) {
    std::map<std::string, std::string> parameters;
    for (const std::string& assignment : assignments) {
        const std::size_t sign = assignment.find('=');
        if (sign == std::string::npos || sign == 0) {
            return tl::unexpected(failureBecause(fmt::format(
                "\"{}\" is no parameter; write param=value or param=@file", assignment)));
        }
        std::string value = assignment.substr(sign + 1);
        if (!value.empty() && value.front() == '@') {
            auto content = readParameter(session, value.substr(1));
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
    const auto parameters = readAssignments(session, assignments);
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
