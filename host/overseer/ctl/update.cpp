#include <fmt/format.h>
#include <chrono>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

// A run from start to end: started, watched until the network is idle, and told file by file as
// the host's own account of it has them.
namespace overseer::ctl {
namespace {

constexpr int kProgressSeconds = 1;
constexpr int kQuietSeconds = 60;

Colour colourOf(const std::string& outcome) {
    if (outcome == "updated") {
        return Colour::kGreen;
    }
    if (outcome == "failed") {
        return Colour::kRed;
    }
    return outcome == "held back" ? Colour::kYellow : Colour::kNone;
}

/// "3 updated, 1 failed": what there is of each outcome.
std::string countsOf(const Json& run) {
    std::string text;
    for (const auto& [outcome, count] : run.at("counts").items()) {
        if (count != 0) {
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count.dump(), outcome);
        }
    }
    return text.empty() ? "no files" : text;
}

/// One line on the terminal that is written over as the run goes on; nothing elsewhere.
class Progress {
  public:
    explicit Progress(Console& console) : console_(console) { show("starting"); }
    ~Progress() {
        if (console_.liveOutput) {
            console_.out << "\r\x1b[K" << std::flush;
        }
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(const std::string& text) {
        if (console_.liveOutput) {
            const auto passed = std::chrono::duration_cast<std::chrono::seconds>(
                std::chrono::steady_clock::now() - begin_);
            console_.out << fmt::format("\r\x1b[K{} s  {}", passed.count(), text) << std::flush;
        }
    }

  private:
    Console& console_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

Answered<Json> startRun(Session& session, const std::string& agent, bool forced) {
    const auto reply =
        session.client.post(agentTarget(agent, "/runs"), Json{{"forced", forced}}.dump());
    if (!reply) {
        return tl::unexpected(reply.error());
    }
    return Json::parse(reply->body, nullptr, false);
}

Answered<Json> awaitEnd(Session& session, const std::string& agent) {
    Progress progress(session.console);
    const std::string target =
        fmt::format("{}?wait=finished&timeout={}", agentTarget(agent, "/runs/last"),
                    session.console.liveOutput ? kProgressSeconds : kQuietSeconds);
    for (;;) {
        auto run = getJson(session, target);
        if (!run || !run->value("running", false)) {
            return run;
        }
        progress.show(countsOf(*run) + " so far");
    }
}

void printRun(Session& session, const Json& run) {
    Table table(
        {{"FILE"}, {"BEFORE", true}, {"AFTER", true}, {"OUTCOME"}, {"MS", true}, {"REASON"}});
    for (const Json& file : run.at("files")) {
        const std::string outcome = textOf(file, "outcome");
        table.add({{textOf(file, "file")},
                   {numberOf(file, "versionBefore", "-")},
                   {numberOf(file, "versionAfter", "-")},
                   {outcome, colourOf(outcome)},
                   {file.at("milliseconds").is_null() ? "" : file.at("milliseconds").dump()},
                   {textOf(file, "reason")}});
    }
    table.print(session.console.out, session.console.coloured);
    session.console.out << countsOf(run) << std::endl;
    for (const Json& reason : run.at("queryFailures")) {
        session.console.err << "overseerctl: a query of the catalogue failed: "
                            << printable(reason.get<std::string>()) << std::endl;
    }
}

int refusedStart(const Session& session, const Failure& failure) {
    const int code = report(session, failure);
    const bool refused = failure.code == "switched_off" || failure.code == "run_in_flight";
    return refused ? static_cast<int>(kRunRefused) : code;
}

int lostRun(const Session& session, Failure failure) {
    if (failure.kind == Failure::Kind::kInterrupted) {
        failure.message = "interrupted; the run goes on in the host";
    } else {
        failure.message += "; `overseerctl status` tells what came of the run";
        failure.kind = Failure::Kind::kBroken;
    }
    return report(session, failure);
}

}  // namespace

int runUpdate(Session& session, bool forced) {
    const auto agent = chooseAgent(session, "EXECUTE_AUTO_UPDATE");
    if (!agent) {
        return report(session, agent.error());
    }
    const auto started = startRun(session, *agent, forced);
    if (!started) {
        return refusedStart(session, started.error());
    }
    const auto run = awaitEnd(session, *agent);
    if (!run) {
        return lostRun(session, run.error());
    }
    if (run->at("id") != started->value("id", Json())) {
        return lostRun(session, {Failure::Kind::kBroken, {}, "another run has begun since"});
    }
    if (session.json) {
        session.console.out << run->dump(2) << std::endl;
    } else {
        printRun(session, *run);
    }
    return run->value("failed", true) ? kSomeFailed : kSuccess;
}

}  // namespace overseer::ctl
