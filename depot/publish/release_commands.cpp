// The commands that work on releases: what they take, and how they tell what happened.
#include "depot/publish/release_commands.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "depot/commands.h"
#include "depot/publish/check_report.h"
#include "depot/publish/interruption.h"
#include "depot/publish/progress.h"
#include "depot/publish/publisher.h"

namespace depot {
namespace {

using OrderedJson = nlohmann::ordered_json;

struct ReleaseOptions {
    std::string folder;
    std::string release;
    std::string solr;
    std::string files;
    std::string configset = "catalogue";
    std::string caFile;
    Publisher::Settings settings;
    bool json = false;
};

void print(const OrderedJson& answer) {
    std::cout << answer.dump(2, ' ', false, OrderedJson::error_handler_t::replace) << std::endl;
}

/// What every one of these commands stands on.
struct Workplace {
    Interruption interruption;
    SolrClient client;
    ReleaseFolder folder;
    std::unique_ptr<SolrSite> site;

    explicit Workplace(const ReleaseOptions& options)
        : client(options.solr, options.caFile, [this] { return interruption.again(); }),
          folder(options.files) {}

    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    Result<void> open(const ReleaseOptions& options, bool lock) {
        if (lock) {
            if (auto locked = folder.lock(); !locked) return locked;
        }
        auto opened = SolrSite::open(client, options.configset);
        if (!opened) return tl::make_unexpected(opened.error());
        site = std::move(*opened);
        return {};
    }
};

Result<std::vector<CheckedPackage>> checkFolder(const std::string& folder, Progress& progress) {
    const auto paths = packagesAt(folder);
    if (!paths) return tl::make_unexpected(paths.error());
    std::vector<CheckedPackage> packages;
    for (const std::string& path : *paths) {
        progress.show("checking " + std::to_string(packages.size() + 1) + " of " +
                      std::to_string(paths->size()));
        packages.push_back(checkPackage(path));
    }
    return packages;
}

const char* kindName(PublishOutcome::Kind kind) {
    switch (kind) {
        case PublishOutcome::Kind::kPublished:
            return "published";
        case PublishOutcome::Kind::kUnchanged:
            return "unchanged";
        case PublishOutcome::Kind::kPlanned:
            return "planned";
        case PublishOutcome::Kind::kRefused:
            return "refused";
    }
    return "";
}

void tell(const PublishOutcome& outcome, bool json) {
    if (json) {
        OrderedJson answer{
            {"outcome", kindName(outcome.kind)},
            {"release", outcome.release},
            {"previous", outcome.previous ? OrderedJson(*outcome.previous) : OrderedJson()},
            {"added", outcome.added},
            {"changed", outcome.changed},
            {"removed", outcome.removed},
            {"warnings", outcome.warnings}};
        answer["check"] = reportJson(outcome.packages);
        return print(answer);
    }
    std::cout << reportText(outcome.packages);
    const std::string changes = std::to_string(outcome.added) + " new, " +
                                std::to_string(outcome.changed) + " changed, " +
                                std::to_string(outcome.removed) + " gone";
    switch (outcome.kind) {
        case PublishOutcome::Kind::kPublished:
            std::cout << "published release " << outcome.release << ": " << changes << "\n";
            break;
        case PublishOutcome::Kind::kUnchanged:
            std::cout << "release " << outcome.release << " is served already; nothing changed\n";
            break;
        case PublishOutcome::Kind::kPlanned:
            std::cout << "would publish: " << changes << "; nothing was touched\n";
            break;
        case PublishOutcome::Kind::kRefused:
            std::cout << "not published: packages have errors; nothing was touched\n";
            break;
    }
    std::cout << std::flush;
}

int publish(const ReleaseOptions& options) {
    Progress progress;
    auto packages = checkFolder(options.folder, progress);
    if (!packages) return fail(packages.error().message);
    if (anyErrors(*packages)) {
        progress.clear();
        PublishOutcome refused;
        refused.packages = std::move(*packages);
        tell(refused, options.json);
        return kExitRefused;
    }
    Workplace place(options);
    if (auto opened = place.open(options, !options.settings.dryRun); !opened)
        return fail("nothing was touched: " + opened.error().message);
    Publisher::Settings settings = options.settings;
    settings.progress = [&progress](const std::string& text) { progress.show(text); };
    settings.interrupted = [&place] { return place.interruption.requested(); };
    Publisher publisher(place.folder, *place.site, std::move(settings));
    const auto outcome = publisher.publish(std::move(*packages));
    progress.clear();
    if (!outcome) return fail(outcome.error().message);
    tell(*outcome, options.json);
    for (const std::string& warning : outcome->warnings)
        std::cerr << "driver-depot: " << warning << std::endl;
    return outcome->kind == PublishOutcome::Kind::kRefused ? kExitRefused : kExitDone;
}

int rollback(const ReleaseOptions& options) {
    Progress progress;
    Workplace place(options);
    if (auto opened = place.open(options, true); !opened)
        return fail("nothing was touched: " + opened.error().message);
    Publisher::Settings settings = options.settings;
    settings.progress = [&progress](const std::string& text) { progress.show(text); };
    settings.interrupted = [&place] { return place.interruption.requested(); };
    Publisher publisher(place.folder, *place.site, std::move(settings));
    const auto release = publisher.rollback(
        options.release.empty() ? std::nullopt : std::optional<std::string>(options.release));
    progress.clear();
    if (!release) return fail(release.error().message);
    for (const std::string& warning : publisher.warnings())
        std::cerr << "driver-depot: " << warning << std::endl;
    if (options.json)
        print({{"release", *release}});
    else
        std::cout << "release " << *release << " is served" << std::endl;
    return kExitDone;
}

int releases(const ReleaseOptions& options) {
    Workplace place(options);
    if (auto opened = place.open(options, false); !opened) return fail(opened.error().message);
    Publisher publisher(place.folder, *place.site, options.settings);
    const auto states = publisher.releases();
    if (!states) return fail(states.error().message);
    OrderedJson list = OrderedJson::array();
    for (const ReleaseState& state : *states) {
        list.push_back({{"release", state.id},
                        {"packages", state.packages},
                        {"agents", state.agents},
                        {"served", state.served},
                        {"complete", state.complete},
                        {"remark", state.remark}});
        if (options.json) continue;
        std::cout << (state.served ? "* " : "  ") << state.id << "  " << state.packages
                  << " packages, " << state.agents << " agents"
                  << (state.remark.empty() ? "" : "  (" + state.remark + ")") << "\n";
    }
    if (options.json)
        print({{"releases", list}});
    else if (states->empty())
        std::cout << "no release was published yet\n";
    std::cout << std::flush;
    return kExitDone;
}

CLI::App* addCommand(CLI::App& app, const char* name, const char* description,
                     const std::shared_ptr<ReleaseOptions>& options) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("--solr", options->solr, "URL of a Solr node, up to and with /solr")
        ->required();
    command->add_option("--files", options->files, "The folder of package files that nginx serves")
        ->required()
        ->check([](const std::string& folder) {
            return folder.empty() ? std::string("names no folder") : std::string();
        });
    command
        ->add_option("--ca", options->caFile,
                     "Certificates to trust for --solr, a PEM file; by default the system's")
        ->check(CLI::ExistingFile);
    command->add_flag("--json", options->json, "Write the outcome as JSON");
    return command;
}

void addCacheOption(CLI::App& command, const std::shared_ptr<ReleaseOptions>& options) {
    command
        .add_option("--cache", options->settings.caches,
                    "A cache folder of nginx, emptied after the switch; may be repeated")
        ->check(CLI::ExistingDirectory);
}

CLI::App* addPublish(CLI::App& app, const std::shared_ptr<ReleaseOptions>& options) {
    CLI::App* command = addCommand(
        app, "publish",
        "Check the packages of a folder, put them out as one release beside what is served, "
        "compare,\nthen switch. A failure before the switch leaves what is served untouched.",
        options);
    command->add_option("DIR", options->folder, "The folder of packages, with their sidecars")
        ->required()
        ->check(CLI::ExistingDirectory);
    addCacheOption(*command, options);
    command->add_option("--keep", options->settings.keep, "How many former releases stay")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    command->add_option("--configset", options->configset, "The catalogue's configset in Solr")
        ->capture_default_str();
    command->add_flag("--allow-older", options->settings.allowOlder,
                      "Publish versions that are not newer than the published ones, too");
    command->add_flag("--dry-run", options->settings.dryRun,
                      "Say what would be done, and touch nothing");
    return command;
}

}  // namespace

void addReleaseCommands(CLI::App& app, Command& chosen) {
    const auto options = std::make_shared<ReleaseOptions>();
    CLI::App* publishing = addPublish(app, options);
    publishing->callback([options, &chosen] { chosen = [options] { return publish(*options); }; });

    CLI::App* listing =
        addCommand(app, "releases",
                   "List the releases that are there; * marks the one that is served.", options);
    listing->callback([options, &chosen] { chosen = [options] { return releases(*options); }; });

    CLI::App* returning = addCommand(
        app, "rollback",
        "Serve a former release again, by default the one that was served before this one.",
        options);
    returning->add_option("RELEASE", options->release, "The release, as `releases` lists it");
    addCacheOption(*returning, options);
    returning->callback([options, &chosen] { chosen = [options] { return rollback(*options); }; });
}

}  // namespace depot
