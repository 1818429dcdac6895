#include <fmt/format.h>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>

#include "control/http_message.h"
#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/notification_watch.h"
#include "ctl/offers.h"
#include "ctl/table.h"

// Driver files brought into a running controller: judged first, asked about where that is called
// for, put in place by the host, and applied.
namespace overseer::ctl {
namespace {

constexpr const char* kUpdateCommand = "UPDATE_DRIVERS";

/// A file on its way.
struct Item {
    Offer offer;
    int version = 0;        ///< that was put in place
    bool inPlace = false;   ///< a driver of that name is there already
    bool restarts = false;  ///< the host must restart before the driver works as it should
    bool installed = false;
    std::string outcome;  ///< why it was not installed

    bool isRefused() const { return !outcome.empty(); }
};

std::string driverTarget(const std::string& name, std::string_view rest = "") {
    return fmt::format("/drivers/{}{}", control::percentEncoded(name), rest);
}

/// A failure that concerns one file; those after it can still be handled.
bool isOfOneFile(const Failure& failure) {
    return failure.kind == Failure::Kind::kRefused && failure.code != "stopping";
}

Answered<std::vector<Item>> readItems(Session& session, const std::vector<std::string>& files) {
    std::vector<Item> items;
    std::set<std::string> names;
    for (const std::string& file : files) {
        Item item;
        item.offer = readOffer(file, "");
        if (item.offer.problem.empty() && !names.insert(item.offer.name).second) {
            item.offer.problem = "a file of this name was given before";
        }
        item.outcome = item.offer.problem;
        if (!item.isRefused()) {
            const auto driver = getJson(session, driverTarget(item.offer.name));
            if (driver) {
                item.inPlace = driver->value("inPlace", false);
            } else if (driver.error().code != "no_such_driver") {
                return tl::unexpected(driver.error());
            }
        }
        items.push_back(std::move(item));
    }
    return items;
}

/// Why the person at the terminal must be asked about a driver that is there already; empty when
/// there is no need. What may not be replaced at all is refused here.
std::string questionAbout(Item& item, const Verdict& verdict) {
    if (verdict.code == "ERROR_LOADING_DRIVER") return verdict.problem;
    if (!verdict.mayReplace) {
        item.outcome = verdict.problem.empty() ? verdict.code : verdict.problem;
        return {};
    }
    item.restarts = verdict.restarts;
    return verdict.asksFirst ? verdict.question : std::string();
}

void ask(Session& session, Item& item, const std::string& reason) {
    if (!session.console.interactive) {
        item.outcome = reason + " To overwrite all the same, use --yes.";
        return;
    }
    const std::string question =
        fmt::format("{}: {} Overwrite?", printable(item.offer.name), printable(reason));
    if (!isConfirmed(session, question)) item.outcome = "left as it was: " + reason;
}

std::string asSentence(std::string text) {
    if (!text.empty() && text.back() != '.') text += '.';
    return text;
}

/// Has a file judged where a driver of its name is in place, and asks where the answer says so. By
/// itself, so that a failure of the command costs no other file.
Answered<> settle(Session& session, Item& item, bool yes) {
    if (item.isRefused() || !item.inPlace) return {};
    Answers answers;
    if (auto judged = evaluateOffers(session, {item.offer}, answers); !judged) {
        if (!isOfOneFile(judged.error())) return judged;
        item.outcome = judged.error().message;
        return {};
    }
    const Verdict verdict = toVerdict(answers.document_element().first_child());
    const std::string reason = asSentence(questionAbout(item, verdict));
    if (!reason.empty() && !yes) ask(session, item, reason);
    if (!session.interruption.requested()) return {};
    return tl::unexpected(Failure{Failure::Kind::kInterrupted, {}, "interrupted"});
}

/// Whether a node tells user interfaces that a driver of this name is in use now.
bool tellsOf(const std::string& xml, const std::string& name) {
    pugi::xml_document node;
    if (!node.load_buffer(xml.data(), xml.size())) return false;
    const pugi::xml_node root = node.document_element();
    return root.name() == std::string_view("driver_updated") &&
           root.child("driver_name").text().get() == name;
}

Answered<> updateDrivers(Session& session, const std::string& agent, const std::string& files,
                         bool restart) {
    const auto reply =
        sendCommand(session, agent, kUpdateCommand,
                    {{"driver_files", files}, {"restart_overseer", restart ? "true" : "false"}});
    if (!reply) return tl::unexpected(reply.error());
    return {};
}

/// The list of one file that UPDATE_DRIVERS takes.
std::string fileList(const Item& item) {
    pugi::xml_document document;
    pugi::xml_node file = document.append_child("driver_files").append_child("driver_file");
    file.append_child("driver_name").text().set(item.offer.name.c_str());
    file.append_child("overseer_restart").text().set(item.restarts);
    std::ostringstream text;
    document.save(text, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    return text.str();
}

Answered<> place(Session& session, Item& item) {
    const auto reply = session.client.post(driverTarget(item.offer.name, "/place"),
                                           Json{{"path", item.offer.path}}.dump());
    if (!reply) return tl::unexpected(reply.error());
    const Json placed = Json::parse(reply->body, nullptr, false);
    item.version = placed.value("version", 0);
    // The plug-in of an agent is loaded when the host starts.
    item.restarts = item.restarts || !textOf(placed, "library").empty();
    return {};
}

Answered<> apply(Session& session, const std::string& agent, Item& item) {
    auto watch = NotificationWatch::begin(session, agent);
    if (!watch) return tl::unexpected(watch.error());
    if (auto told = updateDrivers(session, agent, fileList(item), false); !told) return told;
    const auto nodes = watch->take();
    if (!nodes) return tl::unexpected(nodes.error());
    item.installed = std::any_of(nodes->begin(), nodes->end(), [&item](const std::string& xml) {
        return tellsOf(xml, item.offer.name);
    });
    if (!item.installed) {
        item.outcome = "it is in place, but the host refused it, and its log says why";
        if (item.inPlace) item.outcome += "; `overseerctl restore` puts back the one before";
    }
    return {};
}

/// @return only what ends the whole command
Answered<> install(Session& session, const std::string& agent, Item& item) {
    if (item.isRefused()) return {};
    auto done = place(session, item);
    if (done) done = apply(session, agent, item);
    if (done || !isOfOneFile(done.error())) return done;
    item.outcome = withoutSubject(done.error().message, item.offer);
    return {};
}

void print(const Session& session, const Item& item) {
    const std::string name = printable(item.offer.name);
    if (item.installed) {
        session.console.out << fmt::format("{}: installed, version {}{}", name, item.version,
                                           item.restarts ? "; the host must restart" : "")
                            << std::endl;
    } else {
        session.console.out << fmt::format("{}: not installed: {}", name, printable(item.outcome))
                            << std::endl;
    }
}

/// Ends the command in the middle of a file: the host may have done with it what it was told.
int leave(const Session& session, const Item& item, Failure failure) {
    failure.message += fmt::format(
        "; {} may be in place but not applied, and those after it were not touched: `overseerctl "
        "drivers` tells",
        item.offer.name);
    return report(session, failure);
}

/// Restarts the host where a driver needs that and the user wants it, and says so where not.
int conclude(Session& session, const std::string& agent, const std::vector<Item>& items,
             bool restart) {
    const bool needed = std::any_of(items.begin(), items.end(), [](const Item& item) {
        return item.installed && item.restarts;
    });
    if (needed && restart) {
        if (const auto told = updateDrivers(session, agent, "", true); !told) {
            return report(session, told.error());
        }
        session.console.out << "the host restarts" << std::endl;
    } else if (needed) {
        session.console.out << "a restart of the host is needed; it was not asked for (--restart)"
                            << std::endl;
    }
    return std::all_of(items.begin(), items.end(), [](const Item& item) { return item.installed; })
               ? kSuccess
               : kSomeFailed;
}

}  // namespace

int installDrivers(Session& session, const std::vector<std::string>& files,
                   const InstallOptions& options) {
    const auto agent = chooseAgent(session, kUpdateCommand);
    if (!agent) return report(session, agent.error());
    auto items = readItems(session, files);
    if (!items) return report(session, items.error());
    // Everything that is to be asked is asked before anything changes.
    for (Item& item : *items) {
        if (const auto settled = settle(session, item, options.yes); !settled) {
            return report(session, settled.error());
        }
    }
    for (Item& item : *items) {
        if (const auto done = install(session, *agent, item); !done) {
            return leave(session, item, done.error());
        }
        print(session, item);
    }
    return conclude(session, *agent, *items, options.restart);
}

}  // namespace overseer::ctl
