#include "runtime/shortcomings.h"

#include <unistd.h>

#include <set>
#include <string>

#include "common/log.h"
#include "common/system_failure.h"

namespace overseer {

namespace {

void warnOfReadOnlyFolders(const ControllerRoot& root) {
    for (const auto& folder : {root.temporary(), root.packagedDrivers(), root.plainDrivers()}) {
        if (::access(folder.c_str(), W_OK) == 0) continue;
        log::warn(
            fmt::format("{} cannot be written ({}), so updates will fail: check its owner, "
                        "mode and mount",
                        folder.string(), lastErrorText()));
    }
}

/// What the host has open beside a file for each driver that is being fetched: database, log,
/// transfers, control connections.
constexpr std::size_t kOwnDescriptors = 256;

void warnOfFewDescriptors(const Project& project, std::size_t descriptors) {
    std::set<std::string> files;
    project.AddDriverFileNames(files);
    project.AddAgentFileNames(files);
    const std::size_t needed = files.size() + kOwnDescriptors;
    if (descriptors >= needed) return;
    log::warn(
        fmt::format("only {} files may be open at once; a run over the project's {} driver "
                    "files may need {}: raise the hard limit (LimitNOFILE=, ulimit -Hn)",
                    descriptors, files.size(), needed));
}

}  // namespace

void warnOfShortcomings(const Configuration& configuration, const ControllerRoot& root,
                        const Project& project, nv::hosting::Transport& transport,
                        std::size_t descriptors) {
    if (configuration.catalogue.empty()) {
        log::warn(
            fmt::format("no catalogue is configured, so every run will fail: set "
                        "\"catalogue\" in {}",
                        root.configurationFile().string()));
    }
    if (const auto error = transport.checkCaFile(root.caBundle().string())) {
        log::warn(
            fmt::format("the CA bundle {} cannot be used ({}), so every run will fail: put "
                        "the PEM certificates of the catalogue's authorities there",
                        root.caBundle().string(), error.message()));
    }
    warnOfReadOnlyFolders(root);
    warnOfFewDescriptors(project, descriptors);
}

}  // namespace overseer
