#include <fmt/format.h>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <pugixml.hpp>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/log_tail.h"
#include "ctl/notification_watch.h"
#include "ctl/table.h"

// An agent out of the catalogue. The command answers nothing, and several of its outcomes are told
// nowhere: what the host holds afterwards decides then.
namespace overseer::ctl {
namespace {

constexpr const char* kAddCommand = "AUTO_ADD_AGENT";
constexpr std::string_view kPackageExtension = ".nvz";
constexpr int kHistoryLooked = 100;
constexpr std::chrono::seconds kQuietWait{60};

/// What came of it, as far as it was told.
struct Outcome {
    bool added = false;
    std::string reason;  ///< why it was not
};

/// Why a file cannot be looked up by that name; empty when it can. The lookup sends the name as it
/// stands, within the query and within the URL.
std::string objectionTo(const std::string& file) {
    constexpr std::string_view kSyntax = "+!(){}[]^\"~*?:\\/&|#%;<>";
    const auto isBlank = [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte <= ' ' || byte == 0x7f;
    };
    if (std::any_of(file.begin(), file.end(), isBlank)) {
        return "a blank or control character would end the name in the catalogue's query";
    }
    const std::size_t sign = file.find_first_of(kSyntax);
    if (sign != std::string::npos) {
        return fmt::format("\"{}\" has a meaning of its own in the catalogue's query", file[sign]);
    }
    if (file.empty() || file.front() == '-' || file.front() == '.') {
        return "it may not begin with \"-\" or \".\"";
    }
    if (!file.ends_with(kPackageExtension) || file.size() == kPackageExtension.size()) {
        return "an agent comes as a package, whose name ends in .nvz";
    }
    return {};
}

std::optional<Outcome> outcomeOfNode(const std::string& xml, const std::string& file, bool ended) {
    pugi::xml_document document;
    if (!document.load_buffer(xml.data(), xml.size())) {
        return std::nullopt;
    }
    const pugi::xml_node root = document.document_element();
    const std::string kind = root.name();
    const std::string named = root.child_value("driver_name");
    const std::string reason = root.child_value("reason");
    if (kind == "auto_add_agent" && file == root.child_value("agent_name")) {
        return Outcome{true, {}};
    }
    if (kind == "auto_add_agent_failed" && (named.empty() || named == file)) {
        return Outcome{false, reason};
    }
    // Somebody else's, unless nothing else comes.
    if (kind == "auto_add_agent_failed" && ended) {
        return Outcome{false, fmt::format("the catalogue offers \"{}\": {}", named, reason)};
    }
    // Told without a name: it may be a run's, so it counts once nothing else can come.
    if (kind == "driver_update_failed" && named.empty() && ended) {
        return Outcome{false, "the catalogue's answer failed: " + reason};
    }
    return std::nullopt;
}

Answered<std::uint64_t> newestRecord(Session& session) {
    const auto history = getJson(session, "/history?limit=1");
    if (!history) {
        return tl::unexpected(history.error());
    }
    const Json& records = history->at("history");
    return records.empty() ? std::uint64_t(0) : records.back().value("number", std::uint64_t(0));
}

/// A failure that the history alone tells: a refusal of the host, a download that was spoilt.
Answered<std::optional<Outcome>> outcomeOfHistory(Session& session, const std::string& file,
                                                  std::uint64_t after) {
    const auto history = getJson(session, fmt::format("/history?limit={}", kHistoryLooked));
    if (!history) {
        return tl::unexpected(history.error());
    }
    for (const Json& record : history->at("history")) {
        const std::string text = textOf(record, "text");
        if (record.value("number", std::uint64_t(0)) > after &&
            textOf(record, "result") == "Failed" && text.ends_with(": " + file)) {
            // Why the host would not have it is in its log alone.
            const bool refused = text.rfind("Auto-Add Agent Failed", 0) == 0;
            return Outcome{false, refused ? text + "; the host's log says why" : text};
        }
    }
    return std::nullopt;
}

/// Waits for the outcome; nothing when all has ended without one.
Answered<std::optional<Outcome>> awaitOutcome(Session& session, NotificationWatch& watch,
                                              const std::string& file) {
    std::vector<std::string> nodes;
    for (;;) {
        const auto idle = awaitIdle(session, std::chrono::seconds(1));
        if (!idle) {
            return tl::unexpected(idle.error());
        }
        const auto more = watch.take();
        if (!more) {
            return tl::unexpected(more.error());
        }
        nodes.insert(nodes.end(), more->begin(), more->end());
        for (const std::string& xml : nodes) {
            if (auto outcome = outcomeOfNode(xml, file, *idle)) {
                return outcome;
            }
        }
        if (*idle) {
            return std::nullopt;
        }
    }
}

/// Version of the installed agent of that file; nothing when there is no such agent or device.
Answered<std::optional<int>> installedVersion(Session& session, const std::string& file) {
    const auto drivers = getJson(session, "/drivers");
    if (!drivers) {
        return tl::unexpected(drivers.error());
    }
    for (const Json& driver : drivers->at("drivers")) {
        if (textOf(driver, "file") == file) {
            return driver.value("installedVersion", 0);
        }
    }
    return std::nullopt;
}

/// What to say of an agent that was silently passed over.
std::string reasonOfSilence(Session& session, const std::string& agent, const std::string& file,
                            const LogTail& log) {
    const auto settings = getJson(session, agentTarget(agent, "/settings"));
    const std::string excluded =
        settings ? textOf(settings->at("values"), "excluded_files") : std::string();
    if (("," + excluded + ",").find("," + file + ",") != std::string::npos) {
        return fmt::format("it is excluded; `overseerctl exclude remove {}` lets it in", file);
    }
    // An answer that broke off names no file.
    std::string line = log.lastLineWith(file);
    if (line.empty()) {
        line = log.lastLineWith(" ERROR ");
    }
    return line.empty() ? "the log has no line about it" : "the log says: " + line;
}

/// Waits until nothing of others is under way: a run that fails would be taken for this command's
/// own outcome.
Answered<> awaitQuiet(Session& session) {
    auto idle = awaitIdle(session, std::chrono::seconds(0));
    if (idle && !*idle) {
        session.console.err << "overseerctl: waiting for the end of what is under way" << std::endl;
    }
    while (idle && !*idle) {
        idle = awaitIdle(session, kQuietWait);
    }
    return idle ? Answered<>() : tl::unexpected(idle.error());
}

/// Sends the command and finds out what came of it; nothing for an agent that was there already.
Answered<std::optional<Outcome>> add(Session& session, const std::string& agent,
                                     const AddAgentOptions& options, const std::string& file) {
    if (const auto quiet = awaitQuiet(session); !quiet) {
        return tl::unexpected(quiet.error());
    }
    const auto before = newestRecord(session);
    if (!before) {
        return tl::unexpected(before.error());
    }
    auto watch = NotificationWatch::begin(session, agent);
    if (!watch) {
        return tl::unexpected(watch.error());
    }
    const LogTail log(session.client.root());
    const auto sent = sendCommand(session, agent, kAddCommand,
                                  {{"name", options.name},
                                   {"library", options.library},
                                   {"filename", file},
                                   {"version", options.version}});
    if (!sent) {
        return tl::unexpected(sent.error());
    }
    auto outcome = awaitOutcome(session, *watch, file);
    if (outcome && !*outcome) {
        outcome = outcomeOfHistory(session, file, *before);
    }
    if (!outcome || *outcome) {
        return outcome;
    }
    const auto installed = installedVersion(session, file);
    if (!installed) {
        return tl::unexpected(installed.error());
    }
    if (*installed) {
        return std::nullopt;
    }
    return Outcome{false, reasonOfSilence(session, agent, file, log)};
}

}  // namespace

int addAgent(Session& session, const AddAgentOptions& options) {
    if (options.name.empty()) {
        return report(session, failureBecause("an agent needs a name: without one its download "
                                              "would count as a driver's update"));
    }
    const std::string file =
        options.file.empty() ? options.name + std::string(kPackageExtension) : options.file;
    if (const std::string objection = objectionTo(file); !objection.empty()) {
        return report(session, failureBecause(
                                   fmt::format("\"{}\" cannot be looked up: {}", file, objection)));
    }
    const auto agent = chooseAgent(session, kAddCommand);
    if (!agent) {
        return report(session, agent.error());
    }
    const auto outcome = add(session, *agent, options, file);
    if (!outcome) {
        return report(session, outcome.error());
    }
    if (*outcome && !(*outcome)->added) {
        return report(
            session, failureBecause(fmt::format("{} was not added: {}", file, (*outcome)->reason)));
    }
    const auto version = installedVersion(session, file);
    if (!version) {
        return report(session, version.error());
    }
    session.console.out << fmt::format(
        "{}: {}, version {}{}\n", printable(file), *outcome ? "added" : "present already",
        version->value_or(0),
        *outcome ? "; a plug-in that it brings is loaded when the host next starts" : "");
    return kSuccess;
}

}  // namespace overseer::ctl
