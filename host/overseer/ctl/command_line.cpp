#include "ctl/command_line.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <charconv>
#include <functional>
#include <ostream>
#include <sstream>

#include "ctl/commands.h"
#include "ctl/exit_codes.h"
#include "ctl/table.h"

// The command line: what there is, what it means, an example of each.
namespace overseer::ctl {
namespace {

constexpr const char* kExitCodes =
    "Exit codes: 0 done; 1 it failed, the reason is on standard error; 2 some of the files "
    "failed;\n"
    "3 a file may not replace the installed one; 4 no run was started; 5 no host runs on that "
    "root;\n64 the command line was not understood; 130 interrupted.";

/// Numbers beyond it are not told apart in JSON.
constexpr std::uint64_t kLargestNumber = std::uint64_t(1) << 53;

using Action = std::function<int(Session&)>;

/// What the parser fills; outlives the parsing.
struct Options {
    std::string root;
    std::string agent;
    bool json = false;
    std::string name;
    std::vector<std::string> words;
    bool forced = false;
    bool exclude = false;
    std::string state;
    std::uint64_t id = 0;
    std::uint64_t from = 0;
    EvaluateOptions evaluate;
    InstallOptions install;
    SetupOptions setup;
    AddAgentOptions addition;
    EventOptions events;
    HistoryOptions history;
    Action action;
};

CLI::App* command(CLI::App& parent, Options& options, const std::string& name,
                  const std::string& description, const std::string& examples, Action action) {
    CLI::App* added = parent.add_subcommand(name, description);
    added->footer("Examples:\n" + examples);
    added->fallthrough();
    if (action) {
        added->callback([&options, action = std::move(action)] {
            // A command inside another one is called before the outer one, and it is the one meant.
            if (!options.action) {
                options.action = action;
            }
        });
    }
    return added;
}

bool isDecimal(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

/// A number in decimal digits, within bounds: left to itself the parser takes -1 for the largest
/// number there is, and 010 for 8.
std::function<std::string(const std::string&)> wholeNumber(std::uint64_t least,
                                                           std::uint64_t most) {
    return [least, most](const std::string& text) -> std::string {
        std::uint64_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        const bool fits = isDecimal(text) && error == std::errc() && number >= least &&
                          number <= most && (text.front() != '0' || text.size() == 1);
        return fits ? std::string()
                    : fmt::format("\"{}\" is no whole number from {} to {}", text, least, most);
    };
}

std::string checkNotEmpty(const std::string& text) {
    return text.empty() ? "it is empty" : "";
}

std::string checkRequestedVersion(const std::string& text) {
    return isDecimal(text) || CLI::detail::to_lower(text) == "latest"
               ? std::string()
               : "\"" + text + "\" is neither a number nor \"latest\"";
}

void addAgentAddition(CLI::App& app, Options& options) {
    CLI::App* add = command(
        app, options, "add-agent", "Add an agent from the catalogue and wait for the outcome.",
        "  overseerctl add-agent weather_agent\n"
        "  overseerctl add-agent Weather --file weather_agent.nvz --version 3",
        [&options](Session& session) { return addAgent(session, options.addition); });
    add->add_option("NAME", options.addition.name, "The agent's name on this controller")
        ->required();
    add->add_option("--file", options.addition.file, "Its package in the catalogue (NAME.nvz)");
    add->add_option("--library", options.addition.library,
                    "The plug-in in the package, where its manifest does not name it");
    add->add_option("--version", options.addition.version,
                    "A package on the controller serves from this version on: a number, or latest "
                    "(the catalogue's)")
        ->check(checkRequestedVersion);
}

void addAgentCommands(CLI::App& app, Options& options) {
    CLI::App* send = command(
        app, options, "command",
        "Send a command to an agent and print its answer: XML, or nothing for a command without "
        "one.",
        "  overseerctl command GET_STATE\n"
        "  overseerctl command SET_STATE auto_update_enabled=false\n"
        "  overseerctl command UPDATE_DRIVERS driver_files=@list.xml    a value out of a file",
        [&options](Session& session) {
            return runAgentCommand(session, options.name, options.words);
        });
    send->add_option("NAME", options.name, "The command's name")->required();
    send->add_option("PARAMETER", options.words, "param=value, or param=@file");

    CLI::App* update = command(
        app, options, "update", "Start a run, wait for its end and print what came of each file.",
        "  overseerctl update\n"
        "  overseerctl update --forced    also when automatic updating is off",
        [&options](Session& session) { return runUpdate(session, options.forced); });
    update->add_flag("--forced", options.forced,
                     "As the forced daily event: only what the catalogue forces, even when "
                     "automatic updating is off");

    CLI::App* setup = command(
        app, options, "setup",
        "List what the catalogue knows of every driver and agent file here: versions, newer or "
        "not, included in updates or not.",
        "  overseerctl setup\n"
        "  overseerctl setup --xml     as the agent tells it to user interfaces",
        [&options](Session& session) { return showSetup(session, options.setup); });
    setup->add_flag("--xml", options.setup.xml, "The agent's own node instead of a table");
    setup->add_option("--timeout", options.setup.timeoutSeconds, "Seconds to wait (600)")
        ->check(wholeNumber(1, 3600));

    addAgentAddition(app, options);

    CLI::App* state = command(
        app, options, "auto-update", "Switch the daily automatic updating on or off.",
        "  overseerctl auto-update off",
        [&options](Session& session) { return switchAutoUpdate(session, options.state == "on"); });
    state->add_option("STATE", options.state, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    command(app, options, "settings", "Show what an agent persists, the exclusion list included.",
            "  overseerctl settings --json", showSettings);
}

/// What the parser cannot tell by itself.
int evaluateIfClear(Session& session, const Options& options) {
    const bool oneName = options.evaluate.name.empty() || options.words.size() == 1;
    if (oneName && !(options.evaluate.xml && session.json)) {
        return evaluateDrivers(session, options.words, options.evaluate);
    }
    session.console.err << "overseerctl: "
                        << (oneName ? "--xml and --json exclude each other"
                                    : "--as goes with one FILE only")
                        << std::endl;
    return kUsage;
}

void addDriverFileCommands(CLI::App& app, Options& options) {
    CLI::App* evaluate = command(
        app, options, "evaluate",
        "Ask whether driver files at hand may replace the installed ones, and at what price.",
        "  overseerctl evaluate new/dimmer.nvz new/thermostat.nvi\n"
        "  overseerctl evaluate download.tmp --as dimmer.nvz",
        [&options](Session& session) { return evaluateIfClear(session, options); });
    evaluate->add_option("FILE", options.words, "Packages (.nvz) and bare drivers (.nvi)")
        ->required();
    evaluate
        ->add_option("--as", options.evaluate.name,
                     "The installed driver's file name, where FILE is called otherwise")
        ->check(checkNotEmpty);
    evaluate->add_flag("--xml", options.evaluate.xml, "The answer as the agent gives it");

    CLI::App* install = command(
        app, options, "install",
        "Bring driver files into the running controller; asks before it goes back to an older one.",
        "  overseerctl install new/*.nv?\n"
        "  overseerctl install old/dimmer.nvz --yes",
        [&options](Session& session) {
            return installDrivers(session, options.words, options.install);
        });
    install->add_option("FILE", options.words, "Packages (.nvz) and bare drivers (.nvi)")
        ->required();
    install->add_flag("--yes", options.install.yes, "Overwrite without asking");
    install->add_flag("--restart", options.install.restart,
                      "Restart the host afterwards, where one of the files needs that");
}

void addDriverCommands(CLI::App& app, Options& options) {
    addDriverFileCommands(app, options);
    CLI::App* exclude =
        command(app, options, "exclude", "Change or show the list of files that are never updated.",
                "  overseerctl exclude add \"Türklingel Plus.nvz\"\n"
                "  overseerctl exclude list",
                nullptr);
    exclude->require_subcommand(1);
    const auto change = [&options](ExclusionChange kind) {
        return [&options, kind](Session& session) {
            return changeExclusion(session, kind, options.words);
        };
    };
    for (const auto& [name, text, kind] :
         {std::tuple{"add", "Put files on the list.", ExclusionChange::kAdd},
          std::tuple{"remove", "Take files off the list.", ExclusionChange::kRemove}}) {
        command(*exclude, options, name, text,
                std::string("  overseerctl exclude ") + name + " dimmer.nvz thermostat.nvi",
                change(kind))
            ->add_option("FILE", options.words, "Driver file names, letter for letter")
            ->required();
    }
    command(*exclude, options, "list", "Print the list, a file to a line.",
            "  overseerctl exclude list --json", listExclusion);

    CLI::App* restore = command(
        app, options, "restore",
        "Put the earlier package of a driver file back in place and apply it.",
        "  overseerctl restore dimmer.nvz --exclude    and keep runs from updating it again",
        [&options](Session& session) {
            return restoreDriver(session, options.name, options.exclude);
        });
    restore->add_option("NAME", options.name, "The driver's file name")->required();
    restore->add_flag("--exclude", options.exclude, "Exclude the file from updates afterwards");

    command(app, options, "drivers", "List the driver files with their versions and devices.",
            "  overseerctl drivers --json", showDrivers);
}

void addListings(CLI::App& app, Options& options) {
    CLI::App* events = command(
        app, options, "events", "Print what the host told its user interfaces.",
        "  overseerctl events                 what is kept\n"
        "  overseerctl events --follow        what comes from now on, over restarts of the host\n"
        "  overseerctl events --follow --from 120 --json",
        [&options](Session& session) { return showEvents(session, options.events); });
    events->add_flag("--follow", options.events.follow, "Go on until interrupted");
    events
        ->add_option_function<std::uint64_t>(
            "--from", [&options](const std::uint64_t& number) { options.events.from = number; },
            "Begin with this number")
        ->check(wholeNumber(0, kLargestNumber));

    CLI::App* history =
        command(app, options, "history", "List the history, the newest at the end.",
                "  overseerctl history --limit 20\n"
                "  overseerctl history --since \"2026-01-31 03:00:00\"",
                [&options](Session& session) { return showHistory(session, options.history); });
    history->add_option("--limit", options.history.limit, "The newest so many records (1000)")
        ->check(wholeNumber(0, 100'000));
    history->add_option("--since", options.history.since,
                        "Records from this local date, or date and time, on");

    command(app, options, "variables", "List the variables that agents and devices registered.",
            "  overseerctl variables", showVariables);

    CLI::App* schedule =
        command(app, options, "schedule", "List the scheduled events.",
                "  overseerctl schedule\n  overseerctl schedule fire 3", showSchedule);
    command(*schedule, options, "fire", "Deliver an event now, whatever its time.",
            "  overseerctl schedule fire 3",
            [&options](Session& session) { return fireEvent(session, options.id); })
        ->add_option("ID", options.id, "The event's id, as `schedule` lists it")
        ->required()
        ->check(wholeNumber(0, kLargestNumber));

    command(app, options, "status",
            "Show the host and, per agent, the last run, the next ones and the catalogue.",
            "  overseerctl status", showStatus);
}

void declare(CLI::App& app, Options& options) {
    app.add_option("--root", options.root, "The controller root whose host to talk to")
        ->envname("OVERSEER_ROOT")
        ->required()
        ->check(checkNotEmpty);
    app.add_option("--agent", options.agent, "The agent meant, where several would do");
    app.add_flag("--json", options.json, "Listings as JSON, for programs");
    app.require_subcommand(1);
    app.footer(kExitCodes);
    addAgentCommands(app, options);
    addDriverCommands(app, options);
    addListings(app, options);
}

int parseAndAct(const std::vector<std::string>& arguments, Console& console,
                const Interruption& interruption) {
    CLI::App app("Talks to the overseer that runs on a controller root.", "overseerctl");
    Options options;
    declare(app, options);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        // It repeats what was typed, or what a shell made of `*`.
        std::stringstream text;
        const bool served = app.exit(error, console.out, text) == 0;
        for (std::string line; std::getline(text, line);) {
            console.err << printable(line) << "\n";
        }
        return served ? kSuccess : kUsage;
    }
    while (options.root.size() > 1 && options.root.back() == '/') {
        options.root.pop_back();
    }
    Client client(options.root, interruption);
    Session session{client, console, interruption, options.agent, options.json};
    try {
        return options.action(session);
    } catch (const std::exception& error) {
        return report(session, {Failure::Kind::kBroken,
                                {},
                                std::string("the host's answer cannot be read: ") + error.what()});
    }
}

}  // namespace

int run(const std::vector<std::string>& arguments, Console& console,
        const Interruption& interruption) {
    const int code = parseAndAct(arguments, console, interruption);
    console.out.flush();
    if (console.out) {
        return code;
    }
    console.err << "overseerctl: standard output cannot be written, and what it was to show is "
                   "lost; is the disk full?"
                << std::endl;
    return code == kSuccess ? static_cast<int>(kFailure) : code;
}

}  // namespace overseer::ctl
