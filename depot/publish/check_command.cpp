#include "depot/publish/check_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "depot/commands.h"
#include "depot/publish/check_report.h"
#include "depot/publish/progress.h"
#include "depot/publish/published_versions.h"

namespace depot {
namespace {

struct CheckOptions {
    std::string path;
    std::string catalogue;
    std::string caFile;
    bool json = false;
};

Result<std::vector<CheckedPackage>> checkAll(const CheckOptions& options) {
    const auto paths = packagesAt(options.path);
    if (!paths) return tl::make_unexpected(paths.error());
    Progress progress;
    std::vector<CheckedPackage> packages;
    std::vector<std::string> filenames;
    for (const std::string& path : *paths) {
        progress.show("checking " + std::to_string(packages.size() + 1) + " of " +
                      std::to_string(paths->size()));
        packages.push_back(checkPackage(path));
        // A name with errors cannot be asked for; asking would only fail.
        if (packages.back().document && !hasErrors(packages.back().findings))
            filenames.push_back(packages.back().filename);
    }
    if (options.catalogue.empty() || filenames.empty()) return packages;
    progress.show("asking " + options.catalogue);
    HttpClient client(options.caFile);
    const auto published = askCatalogue(client, options.catalogue, filenames);
    if (!published) return tl::make_unexpected(published.error());
    for (CheckedPackage& package : packages) compareVersions(package, *published);
    return packages;
}

int check(const CheckOptions& options) {
    const auto packages = checkAll(options);
    if (!packages) {
        std::cerr << "driver-depot: " << packages.error().message << std::endl;
        return kExitFailed;
    }
    if (options.json) {
        constexpr auto kReplace = nlohmann::ordered_json::error_handler_t::replace;
        std::cout << reportJson(*packages).dump(2, ' ', false, kReplace) << std::endl;
    } else {
        std::cout << reportText(*packages) << std::flush;
    }
    return anyErrors(*packages) ? kExitRefused : kExitDone;
}

}  // namespace

void addCheckCommand(CLI::App& app, Command& chosen) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* command = app.add_subcommand(
        "check",
        "Look at a package, or at every package of a folder, before it is published: manifest,\n"
        "name, archive, versions and whether controllers can be offered it.");
    command->add_option("PATH", options->path, "A package (.nvz, .nvi) or a folder of them")
        ->required();
    command->add_option("--catalogue", options->catalogue,
                        "Base URL of a catalogue; a package must be newer than what it has");
    command
        ->add_option("--ca", options->caFile,
                     "Certificates to trust, a PEM file; by default the system's")
        ->check(CLI::ExistingFile);
    command->add_flag("--json", options->json, "Write the findings as JSON");
    command->callback([options, &chosen] { chosen = [options] { return check(*options); }; });
}

}  // namespace depot
