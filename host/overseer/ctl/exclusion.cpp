#include <fmt/format.h>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

// The list of files that updates leave alone. No command answers it, so it is read from what the
// agent persists, changed here and sent as a whole.
namespace overseer::ctl {
namespace {

constexpr char kSeparator = ',';

struct Exclusion {
    std::string agent;
    std::vector<std::string> files;
};

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> files;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(kSeparator, begin), list.size());
        if (end > begin) {
            files.push_back(list.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return files;
}

std::string join(const std::vector<std::string>& files) {
    std::string list;
    for (const std::string& file : files) {
        list += (list.empty() ? "" : std::string(1, kSeparator)) + file;
    }
    return list;
}

Answered<Exclusion> readExclusion(Session& session) {
    const auto agent = chooseAgent(session, "SET_EXCLUDE");
    if (!agent) {
        return tl::unexpected(agent.error());
    }
    const auto settings = getJson(session, agentTarget(*agent, "/settings"));
    if (!settings) {
        return tl::unexpected(settings.error());
    }
    return Exclusion{*agent, split(textOf(settings->at("values"), "excluded_files"))};
}

struct Applied {
    bool changed = false;
    std::string lines;  ///< what became of each file
};

Applied apply(ExclusionChange change, const std::vector<std::string>& named,
              std::vector<std::string>& files) {
    Applied applied;
    for (const std::string& file : named) {
        const auto place = std::find(files.begin(), files.end(), file);
        const bool listed = place != files.end();
        const bool adding = change == ExclusionChange::kAdd;
        std::string_view what = listed ? "already excluded" : "was not excluded";
        if (adding != listed) {
            what = adding ? "excluded" : "no longer excluded";
            applied.changed = true;
        }
        if (adding && !listed) {
            files.push_back(file);
        } else if (!adding && listed) {
            files.erase(place);
        }
        applied.lines += fmt::format("{}: {}\n", printable(file), what);
    }
    return applied;
}

}  // namespace

int changeExclusion(Session& session, ExclusionChange change,
                    const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        if (file.empty() || file.find(kSeparator) != std::string::npos) {
            return report(session,
                          {Failure::Kind::kBroken,
                           {},
                           fmt::format("\"{}\" cannot be on the list, which separates its files by "
                                       "commas",
                                       file)});
        }
    }
    auto exclusion = readExclusion(session);
    if (!exclusion) {
        return report(session, exclusion.error());
    }
    const Applied applied = apply(change, files, exclusion->files);
    if (applied.changed) {
        const auto reply = sendCommand(session, exclusion->agent, "SET_EXCLUDE",
                                       {{"exclude", join(exclusion->files)}});
        if (!reply) {
            return report(session, reply.error());
        }
    }
    session.console.out << applied.lines;
    return kSuccess;
}

int listExclusion(Session& session) {
    const auto exclusion = readExclusion(session);
    if (!exclusion) {
        return report(session, exclusion.error());
    }
    if (session.json) {
        session.console.out << Json{{"excluded", exclusion->files}}.dump(2) << "\n";
        return kSuccess;
    }
    for (const std::string& file : exclusion->files) {
        session.console.out << printable(file) << "\n";
    }
    return kSuccess;
}

}  // namespace overseer::ctl
