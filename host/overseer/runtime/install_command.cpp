#include "runtime/install_command.h"

#include <nvhost/environment.h>

#include <cstdio>

#include "drivers/install.h"
#include "root/leftovers.h"
#include "runtime/host_state.h"
#include "runtime/surroundings.h"

namespace overseer {

namespace {

int refuse(const Error& error) {
    std::fprintf(stderr, "overseer: %s\n", error.message.c_str());
    return 1;
}

void print(const InstalledFile& installed) {
    const std::string name = installed.file.filename().string();
    if (installed.outcome) {
        std::printf("installed  %s  version %d\n", name.c_str(), installed.outcome->version);
    } else {
        std::fprintf(stderr, "failed     %s  %s\n", name.c_str(),
                     installed.outcome.error().message.c_str());
    }
}

}  // namespace

int installFiles(const ControllerRoot& root, const Invocation& invocation) {
    const nv::hosting::EnvironmentScope environment(
        hostEnvironment(invocation.configuration, root));
    if (Result<> cleaned = removeLeftovers(root); !cleaned) return refuse(cleaned.error());
    Result<std::unique_ptr<HostState>> state = HostState::open(root);
    if (!state) return refuse(state.error());

    DriverApplication application(root, (*state)->ledger);
    const std::vector<boost::filesystem::path> files(invocation.files.begin(),
                                                     invocation.files.end());
    int exitCode = 0;
    for (const InstalledFile& installed :
         installDrivers(files, root, application, (*state)->project)) {
        print(installed);
        if (!installed.outcome) exitCode = 1;
    }
    if (Result<> flushed = application.flushFolders(); !flushed) return refuse(flushed.error());
    return exitCode;
}

}  // namespace overseer
