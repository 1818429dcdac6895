#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

namespace overseer::ctl {
namespace {

std::string lastRunOf(const Json& run) {
    if (run.is_null()) {
        return "never";
    }
    std::string counts;
    for (const auto& [outcome, count] : run.at("counts").items()) {
        if (count != 0) {
            counts += fmt::format(", {} {}", count.dump(), outcome);
        }
    }
    const std::string state =
        run.value("running", false) ? "still running" : "finished " + localTimeOf(run, "finished");
    return fmt::format("{}, started {}, {}{}", textOf(run, "kind"), localTimeOf(run, "started"),
                       state, counts);
}

std::string catalogueOf(const Json& catalogue) {
    const std::string reached = localTimeOf(catalogue, "reached");
    const std::string failed = localTimeOf(catalogue, "failed");
    std::string text = reached.empty() ? "not reached yet" : "reached " + reached;
    if (!failed.empty()) {
        text += fmt::format("; failed {}: {}", failed, textOf(catalogue, "failure"));
    }
    return text;
}

void printAgent(Table& table, const Json& agent) {
    table.add({{"agent"}, {textOf(agent, "agent")}});
    if (!agent.value("loaded", false)) {
        table.add({{"  not loaded"}, {textOf(agent, "problem"), Colour::kRed}});
        return;
    }
    const Json& run = agent.at("lastRun");
    const bool failed = run.is_object() && run.value("failed", false);
    table.add({{"  last run"}, {lastRunOf(run), failed ? Colour::kRed : Colour::kNone}});
    if (run.is_object()) {
        for (const Json& reason : run.at("queryFailures")) {
            table.add({{"  query failed"}, {reason.get<std::string>(), Colour::kRed}});
        }
    }
    for (const Json& next : agent.at("nextRuns")) {
        table.add({{"  next run"},
                   {fmt::format("{}  {} (#{})", localTimeOf(next, "at"), textOf(next, "name"),
                                numberOf(next, "id"))}});
    }
    table.add({{"  catalogue"}, {catalogueOf(agent.at("catalogue"))}});
}

}  // namespace

int showStatus(Session& session) {
    const auto status = getJson(session, "/status");
    if (!status) {
        return report(session, status.error());
    }
    if (session.json) {
        session.console.out << status->dump(2) << "\n";
        return kSuccess;
    }
    const Json& host = status->at("host");
    Table table({{"STATUS"}, {""}});
    table.add({{"host"},
               {fmt::format("overseer {}, process {}, since {}", textOf(host, "version"),
                            numberOf(host, "processId"), localTimeOf(host, "started"))}});
    table.add({{"root"}, {textOf(host, "root")}});
    table.add({{"network"}, {status->value("networkIdle", false) ? "idle" : "busy"}});
    for (const Json& agent : status->at("agents")) {
        printAgent(table, agent);
    }
    table.print(session.console.out, session.console.coloured);
    return kSuccess;
}

}  // namespace overseer::ctl
