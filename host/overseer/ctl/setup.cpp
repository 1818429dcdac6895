#include <fmt/format.h>
#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <pugixml.hpp>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/notification_watch.h"
#include "ctl/table.h"

// What the catalogue knows of every file on the controller: the agent gathers it batch by batch and
// tells it to user interfaces, of which this is one.
namespace overseer::ctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kSetupCommand = "GET_SETUP";
constexpr const char* kNothingInstalled = "<setup><drivers/><agents/></setup>";
constexpr int kAttempts = 2;

Failure outOfTime(std::chrono::seconds limit) {
    return failureBecause(
        fmt::format("no listing came within {} s: an answer of the catalogue is missing, or what "
                    "is under way takes longer; --timeout waits longer",
                    limit.count()));
}

/// What the agent says of a listing that failed.
std::string reasonOf(const pugi::xml_node& failed) {
    const std::string reason = failed.child_value("reason");
    if (!reason.empty()) {
        return "the catalogue cannot be asked: " + reason;
    }
    // An answer that came, but with another status than 200, is no error of the transfer.
    const std::string code = failed.child_value("errorcode");
    return fmt::format("{} ({}): {}", failed.child_value("error"), failed.child_value("urldb"),
                       code == "Success" ? "the catalogue refused; the log has its status" : code);
}

/// The listing, or why there is none, out of what the agent told; nothing when it told neither.
std::optional<Answered<std::string>> listingIn(const std::vector<std::string>& nodes) {
    for (const std::string& xml : nodes) {
        pugi::xml_document document;
        if (!document.load_buffer(xml.data(), xml.size())) {
            continue;
        }
        const pugi::xml_node root = document.document_element();
        if (std::strcmp(root.name(), "setup") == 0) {
            return xml;
        }
        if (std::strcmp(root.name(), "get_setup_failed") == 0) {
            return tl::unexpected(failureBecause(reasonOf(root)));
        }
    }
    return std::nullopt;
}

/// Sends the command once and waits for what comes of it; nothing when all has ended without.
Answered<std::optional<std::string>> askOnce(Session& session, const std::string& agent,
                                             Clock::time_point deadline,
                                             std::chrono::seconds limit) {
    auto watch = NotificationWatch::begin(session, agent);
    if (!watch) {
        return tl::unexpected(watch.error());
    }
    if (const auto sent = sendCommand(session, agent, kSetupCommand, {}); !sent) {
        return tl::unexpected(sent.error());
    }
    for (;;) {
        const auto idle = awaitIdle(session, std::chrono::seconds(1));
        const auto nodes =
            idle ? watch->take() : Answered<std::vector<std::string>>(tl::unexpected(idle.error()));
        if (!nodes) {
            return tl::unexpected(nodes.error());
        }
        if (auto found = listingIn(*nodes)) {
            return *found ? Answered<std::optional<std::string>>(std::move(**found))
                          : tl::unexpected(found->error());
        }
        if (*idle) {
            return std::nullopt;
        }
        if (Clock::now() >= deadline) {
            return tl::unexpected(outOfTime(limit));
        }
    }
}

Answered<std::string> fetchListing(Session& session, const std::string& agent,
                                   std::chrono::seconds limit) {
    const auto deadline = Clock::now() + limit;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(deadline - Clock::now());
        const auto idle = awaitIdle(session, std::max(left, std::chrono::seconds(0)));
        if (!idle || !*idle) {
            return tl::unexpected(idle ? outOfTime(limit) : idle.error());
        }
        auto listing = askOnce(session, agent, deadline, limit);
        if (!listing) {
            return tl::unexpected(listing.error());
        }
        // Without one, a run asked about the same files at that moment: its answers were taken for
        // both.
        if (*listing) {
            return std::move(**listing);
        }
    }
    return tl::unexpected(failureBecause(
        "the agent sent no listing, twice: runs that ask about the same files came between; "
        "try again once `overseerctl status` shows no run"));
}

/// The installed files with their versions.
Answered<std::map<std::string, int>> installedFiles(Session& session) {
    const auto drivers = getJson(session, "/drivers");
    if (!drivers) {
        return tl::unexpected(drivers.error());
    }
    std::map<std::string, int> files;
    for (const Json& driver : drivers->at("drivers")) {
        files[textOf(driver, "file")] = driver.value("installedVersion", 0);
    }
    return files;
}

/// One list of the listing, with what is installed beside it.
Json rowsOf(const pugi::xml_node& list, const std::map<std::string, int>& installed) {
    Json rows = Json::array();
    for (const pugi::xml_node driver : list.children("driver")) {
        const std::string file = driver.child_value("filename");
        const auto known = installed.find(file);
        const int version = known == installed.end() ? 0 : known->second;
        const int offered = driver.child("version").text().as_int();
        rows.push_back({{"file", file},
                        {"installedVersion", version},
                        {"catalogueVersion", offered},
                        {"newer", offered > version},
                        {"included", driver.attribute("include").as_bool()},
                        {"name", driver.child_value("name")},
                        {"model", driver.child_value("model")},
                        {"manufacturer", driver.child_value("manufacturer")},
                        {"md5sum", driver.child_value("md5sum")}});
    }
    return rows;
}

Json setupOf(const std::string& xml, const std::map<std::string, int>& installed) {
    pugi::xml_document document;
    document.load_buffer(xml.data(), xml.size());
    const pugi::xml_node root = document.document_element();
    Json setup{{"drivers", rowsOf(root.child("drivers"), installed)},
               {"agents", rowsOf(root.child("agents"), installed)}};
    std::map<std::string, int> missing = installed;
    for (const char* list : {"drivers", "agents"}) {
        for (const Json& row : setup.at(list)) {
            missing.erase(textOf(row, "file"));
        }
    }
    Json notOffered = Json::array();
    for (const auto& [file, version] : missing) {
        notOffered.push_back(file);
    }
    setup["notOffered"] = std::move(notOffered);
    return setup;
}

/// The agent's node, without the control characters that a catalogue's text may hold and no strict
/// reader of XML takes.
void printNode(Session& session, const std::string& xml) {
    pugi::xml_document document;
    document.load_buffer(xml.data(), xml.size(), pugi::parse_default | pugi::parse_ws_pcdata);
    document.save(session.console.out, "",
                  pugi::format_raw | pugi::format_no_declaration | pugi::format_skip_control_chars,
                  pugi::encoding_utf8);
    session.console.out << std::endl;
}

void printSetup(Session& session, const Json& setup) {
    Table table({{"FILE"},
                 {"INSTALLED", true},
                 {"CATALOGUE", true},
                 {"NEWER"},
                 {"INCLUDED"},
                 {"MODEL"},
                 {"MAKER"}});
    std::size_t files = 0;
    std::size_t newer = 0;
    for (const char* list : {"drivers", "agents"}) {
        for (const Json& row : setup.at(list)) {
            const bool isNewer = row.at("newer").get<bool>();
            const bool included = row.at("included").get<bool>();
            table.add({{textOf(row, "file")},
                       {numberOf(row, "installedVersion", "-")},
                       {numberOf(row, "catalogueVersion", "0")},
                       {isNewer ? "yes" : "no", isNewer ? Colour::kGreen : Colour::kNone},
                       {included ? "yes" : "no", included ? Colour::kNone : Colour::kYellow},
                       {textOf(row, "model")},
                       {textOf(row, "manufacturer")}});
            ++files;
            newer += isNewer ? 1 : 0;
        }
    }
    table.print(session.console.out, session.console.coloured);
    session.console.out << fmt::format("{} in the catalogue, {} of them newer", files, newer);
    std::string separator = "; not offered: ";
    for (const Json& file : setup.at("notOffered")) {
        session.console.out << separator << printable(file.get<std::string>());
        separator = ", ";
    }
    session.console.out << std::endl;
}

}  // namespace

int showSetup(Session& session, const SetupOptions& options) {
    if (options.xml && session.json) {
        session.console.err << "overseerctl: choose one of --xml and --json\n";
        return kUsage;
    }
    const auto agent = chooseAgent(session, kSetupCommand);
    if (!agent) {
        return report(session, agent.error());
    }
    auto installed = installedFiles(session);
    if (!installed) {
        return report(session, installed.error());
    }
    // The agent has no question to ask then, and sends nothing.
    const auto listing =
        installed->empty()
            ? Answered<std::string>(kNothingInstalled)
            : fetchListing(session, *agent, std::chrono::seconds(options.timeoutSeconds));
    if (!listing) {
        return report(session, listing.error());
    }
    // Again: a run that was waited for has changed versions.
    installed = installedFiles(session);
    if (!installed) {
        return report(session, installed.error());
    }
    if (options.xml) {
        printNode(session, *listing);
    } else if (session.json) {
        session.console.out << setupOf(*listing, *installed).dump(2) << std::endl;
    } else {
        printSetup(session, setupOf(*listing, *installed));
    }
    return kSuccess;
}

}  // namespace overseer::ctl
