#include "runtime/process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

namespace overseer::process {

namespace {

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

std::size_t raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

void openStandardStreams() {
    for (int stream = 0; stream <= 2; ++stream) {
        // The lowest free number is this one, since those below are open.
        if (fcntl(stream, F_GETFD) < 0) static_cast<void>(open("/dev/null", O_RDWR));
    }
}

void takeSignals() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;  // NOLINT: the macro's own cast
    sigaction(SIGPIPE, &ignore, nullptr);
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

SignalWaiter::SignalWaiter(std::function<void(int signal)> stop)
    : stop_(std::move(stop)), thread_([this] { wait(); }) {}

SignalWaiter::~SignalWaiter() {
    done_ = true;
    // Blocked there, so it ends the wait and nothing else. NOLINTNEXTLINE(bugprone-bad-signal*)
    pthread_kill(thread_.native_handle(), SIGTERM);
    thread_.join();
}

void SignalWaiter::wait() {
    const sigset_t set = stopSignals();
    for (bool first = true;; first = false) {
        int signal = 0;
        if (sigwait(&set, &signal) != 0 || done_) return;
        if (!first) _exit(128 + signal);
        stop_(signal);
    }
}

std::string ownProgram() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

Error restartInPlace(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    // A lock's descriptor that leaks through would make the new start refuse its own root.
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    execv(program.c_str(), pointers.data());
    return Error{"the host cannot start itself again from " + program + ": " +
                 std::generic_category().message(errno)};
}

}  // namespace overseer::process
