#include <fmt/format.h>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/offers.h"
#include "ctl/table.h"

// Whether files that a person has at hand may replace the installed drivers, and at what price.
namespace overseer::ctl {
namespace {

std::string withReason(const std::string& word, const std::string& reason) {
    return reason.empty() ? word : word + ": " + reason;
}

std::vector<Cell> rowOf(const std::string& name, const Verdict& verdict) {
    if (!verdict.mayReplace) {
        return {{name}, {withReason("no", verdict.problem), Colour::kRed}};
    }
    return {
        {name},
        {"yes", Colour::kGreen},
        verdict.asksFirst ? Cell{withReason("yes", verdict.question), Colour::kYellow} : Cell{"no"},
        verdict.restarts ? Cell{withReason("yes", verdict.restartReason), Colour::kYellow}
                         : Cell{"no"}};
}

void printTable(const Session& session, const std::vector<Offer>& offers, const Answers& answers) {
    Table table({{"FILE"}, {"MAY REPLACE"}, {"ASK FIRST"}, {"RESTART"}});
    pugi::xml_node driver = answers.document_element().first_child();
    for (const Offer& offer : offers) {
        Verdict verdict;
        verdict.problem = offer.problem;
        if (offer.problem.empty()) {
            verdict = toVerdict(driver);
            driver = driver.next_sibling();
        }
        table.add(rowOf(offer.name, verdict));
    }
    table.print(session.console.out, session.console.coloured);
}

/// The answer as the agent gave it, with truth values as JSON has them.
Json toJson(const Answers& answers) {
    Json drivers = Json::array();
    for (const pugi::xml_node driver : answers.document_element().children()) {
        Json members = Json::object();
        for (const pugi::xml_node child : driver.children()) {
            const std::string text = child.text().get();
            const bool isTruth = text == "true" || text == "false";
            members[child.name()] = isTruth && child.name() != std::string_view("driver_name")
                                        ? Json(text == "true")
                                        : Json(text);
        }
        drivers.push_back(std::move(members));
    }
    return {{"drivers", std::move(drivers)}};
}

void printForPrograms(const Session& session, const std::vector<Offer>& offers,
                      const Answers& answers, bool xml) {
    if (xml) {
        answers.save(session.console.out, "    ", pugi::format_indent | pugi::format_no_declaration,
                     pugi::encoding_utf8);
    } else {
        session.console.out << toJson(answers).dump(2) << std::endl;
    }
    for (const Offer& offer : offers) {
        if (!offer.problem.empty()) {
            session.console.err << fmt::format("overseerctl: {} may not replace anything: {}\n",
                                               printable(offer.name), printable(offer.problem));
        }
    }
}

bool allMayReplace(const std::vector<Offer>& offers, const Answers& answers) {
    const auto drivers = answers.document_element().children();
    return std::all_of(offers.begin(), offers.end(),
                       [](const Offer& offer) { return offer.problem.empty(); }) &&
           std::all_of(drivers.begin(), drivers.end(),
                       [](const pugi::xml_node& driver) { return toVerdict(driver).mayReplace; });
}

}  // namespace

int evaluateDrivers(Session& session, const std::vector<std::string>& files,
                    const EvaluateOptions& options) {
    std::vector<Offer> offers;
    offers.reserve(files.size());
    for (const std::string& file : files) offers.push_back(readOffer(file, options.name));
    Answers answers;
    if (const auto evaluated = evaluateOffers(session, offers, answers); !evaluated) {
        return report(session, evaluated.error());
    }
    if (options.xml || session.json) {
        printForPrograms(session, offers, answers, options.xml);
    } else {
        printTable(session, offers, answers);
    }
    return allMayReplace(offers, answers) ? kSuccess : kMayNotReplace;
}

}  // namespace overseer::ctl
