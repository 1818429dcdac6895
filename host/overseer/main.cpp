#include <nv/logger.h>
#include <nvhost/children.h>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "common/log.h"
#include "root/initialization.h"
#include "root/leftovers.h"
#include "root/root_lock.h"
#include "runtime/configuration.h"
#include "runtime/host.h"
#include "runtime/install_command.h"
#include "runtime/process.h"
#include "runtime/surroundings.h"
#include "services/log_setup.h"

namespace {

using namespace overseer;

int fail(const Error& error) {
    std::fprintf(stderr, "overseer: %s\n", error.message.c_str());
    return 1;
}

int initialize(const Invocation& invocation) {
    const std::string& caFile =
        invocation.caFile.empty() ? std::string(kSystemCaBundle) : invocation.caFile;
    const Result<ControllerRoot> root = initializeRoot(invocation.configuration.root, caFile);
    if (!root) return fail(root.error());
    std::printf("%s is a controller root now; its settings are in %s\n",
                root->path().string().c_str(), root->configurationFile().string().c_str());
    return 0;
}

/// Passes a wish to stop on to the host, also one that comes while the host is still starting.
class StopRequest {
  public:
    /// Any thread.
    void ask() {
        const std::lock_guard lock(mutex_);
        asked_ = true;
        nv::hosting::stopChildren();
        if (host_ != nullptr) host_->requestStop();
    }
    /// The host that is to hear of it from now on; false when somebody asked before.
    bool follow(Host& host) {
        const std::lock_guard lock(mutex_);
        host_ = &host;
        return !asked_;
    }
    void release() {
        const std::lock_guard lock(mutex_);
        host_ = nullptr;
    }

  private:
    std::mutex mutex_;
    bool asked_ = false;
    Host* host_ = nullptr;
};

/// Runs the host until it stops or is to restart.
Result<Host::End> run(const Invocation& invocation, const ControllerRoot& root) {
    setenv("TMPDIR", root.temporary().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    const nv::hosting::EnvironmentScope environment(
        hostEnvironment(invocation.configuration, root));
    nv::Logger::initialize();
    if (Result<> cleaned = removeLeftovers(root); !cleaned) {
        return tl::unexpected(cleaned.error());
    }
    StopRequest stop;
    const process::SignalWaiter signals([&](int) { stop.ask(); });
    Result<std::unique_ptr<Host>> host = Host::start(invocation.configuration, root);
    if (!host) return tl::unexpected(host.error());
    if (stop.follow(**host)) {
        std::printf("ready: %s\n", (*host)->summary().c_str());
        std::fflush(stdout);
        log::info("ready: " + (*host)->summary());
    } else {
        (*host)->requestStop();
    }
    const Host::End ended = (*host)->run();
    stop.release();
    return ended;
}

int actOnRoot(const Invocation& invocation, const std::string& program,
              const std::vector<std::string>& arguments) {
    const Result<ControllerRoot> root = ControllerRoot::open(invocation.configuration.root);
    if (!root) return fail(root.error());
    {
        const Result<RootLock> lock = RootLock::acquire(*root);
        if (!lock) return fail(lock.error());
        if (Result<> log = setUpLog({root->logs(), invocation.configuration.logLevel}); !log) {
            return fail(log.error());
        }
        if (invocation.action == Invocation::Action::kInstall) {
            return installFiles(*root, invocation);
        }
        const Result<Host::End> ended = run(invocation, *root);
        if (!ended) log::error(ended.error().message);
        closeLog();
        if (!ended) return fail(ended.error());
        if (*ended == Host::End::kStopped) return 0;
    }
    return fail(process::restartInPlace(program, arguments));
}

}  // namespace

int main(int argc, char** argv) {
    process::openStandardStreams();
    process::takeSignals();
    const std::string program = process::ownProgram();
    const std::vector<std::string> arguments(argv, argv + argc);
    const Result<Invocation> invocation = readInvocation(argc, argv);
    if (!invocation) return fail(invocation.error());
    switch (invocation->action) {
        case Invocation::Action::kExit:
            return invocation->exitCode;
        case Invocation::Action::kInit:
            return initialize(*invocation);
        case Invocation::Action::kInstall:
        case Invocation::Action::kRun:
            try {
                return actOnRoot(*invocation, program, arguments);
            } catch (const std::exception& exception) {
                return fail(Error{std::string("cannot go on: ") + exception.what()});
            }
    }
    return 1;
}
