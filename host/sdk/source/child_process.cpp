// One child of nv::system: started, waited for, and ended early by its limit or by a host that
// stops.

#include "child_process.h"

#include <nvhost/children.h>
#include <nvhost/environment.h>
#include <nvhost/regular_file.h>

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>

namespace nv {
namespace {

using hosting::Descriptor;

constexpr std::array<const char*, 6> kPath = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                              "/usr/bin",        "/sbin",          "/bin"};

/// The children that run, so that a stop from any thread can reach them. An id leaves before its
/// process is collected: an id in here never means a stranger.
struct Children {
    std::mutex mutex;
    std::set<pid_t> running;
    bool stopped = false;
};

Children& children() {
    static Children all;
    return all;
}

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    for (const char* folder : kPath) {
        std::string candidate = std::string(folder) + '/' + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

std::vector<std::string> childEnvironment() {
    std::string path = "PATH=";
    for (const char* folder : kPath) path += std::string(path.size() > 5 ? ":" : "") + folder;
    std::vector<std::string> variables = {path, "LC_ALL=C.UTF-8"};
    // Read-only use: nothing in the host changes its environment once threads run.
    if (const char* zone = std::getenv("TZ")) {  // NOLINT(concurrency-mt-unsafe)
        variables.push_back(std::string("TZ=") + zone);
    }
    const std::string folder = hosting::environment().temporaryFolder.string();
    if (!folder.empty()) {
        variables.push_back("TMPDIR=" + folder);
    } else if (const char* own = std::getenv("TMPDIR")) {  // NOLINT(concurrency-mt-unsafe)
        variables.push_back(std::string("TMPDIR=") + own);
    }
    return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// What posix_spawn does in the child before the program begins.
class SpawnPlan {
  public:
    SpawnPlan(int output, int errors) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO);
        ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", 0, 0);
        ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);

        // What the host ignores or blocks (SIGPIPE, SIGTERM) would else be inherited.
        sigset_t all;
        sigset_t none;
        ::sigfillset(&all);
        ::sigemptyset(&none);
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setflags(&attributes_,
                                   static_cast<short>(POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF |
                                                      POSIX_SPAWN_SETSIGMASK));
    }
    ~SpawnPlan() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    /// 0, or an error number.
    int spawn(pid_t& child, const std::string& program, std::vector<std::string> words) const {
        std::vector<std::string> variables = childEnvironment();
        return ::posix_spawn(&child, program.c_str(), &actions_, &attributes_,
                             pointersTo(words).data(), pointersTo(variables).data());
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

bool hasEnded(pid_t child) {
    siginfo_t info{};
    const int result =
        ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
    return result != 0 ? errno != EINTR : info.si_pid == child;
}

/// Waits until the child ends or `until` has passed; whether it ended. Where the kernel knows no
/// descriptors for processes, it looks a hundred times a second.
bool waitUntil(pid_t child, std::chrono::steady_clock::time_point until) {
    const Descriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    while (!hasEnded(child)) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        const auto longest =
            handle.isOpen() ? std::chrono::milliseconds(60'000) : std::chrono::milliseconds(10);
        pollfd watched{handle.get(), POLLIN, 0};
        ::poll(&watched, 1, static_cast<int>(std::min(left, longest).count()));
    }
    return true;
}

int collect(pid_t child) {
    const std::lock_guard<std::mutex> lock(children().mutex);
    children().running.erase(child);
    int status = 0;
    pid_t result;
    do {
        result = ::waitpid(child, &status, 0);
    } while (result < 0 && errno == EINTR);
    if (result < 0) return 127;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

pid_t startChild(const std::vector<std::string>& words, int output, int errors,
                 std::string& problem) {
    const std::string program = findProgram(words.front());
    if (program.empty()) {
        problem = "there is no program of that name in the path";
        return -1;
    }
    const SpawnPlan plan(output, errors);
    const std::lock_guard<std::mutex> lock(children().mutex);
    if (children().stopped) {
        problem = "the host is stopping";
        return -1;
    }
    pid_t child = -1;
    if (const int error = plan.spawn(child, program, words); error != 0) {
        problem = boost::system::error_code(error, boost::system::system_category()).message();
        return -1;
    }
    children().running.insert(child);
    return child;
}

ChildEnd waitForChild(pid_t child, std::chrono::steady_clock::duration limit) {
    ChildEnd end;
    end.timedOut = !waitUntil(child, std::chrono::steady_clock::now() + limit);
    if (end.timedOut) ::kill(-child, SIGKILL);
    end.status = collect(child);
    return end;
}

KeptExitStatus::KeptExitStatus() {
    if (::sigaction(SIGCHLD, nullptr, &previous_) != 0) return;
    if (previous_.sa_handler != SIG_IGN && (previous_.sa_flags & SA_NOCLDWAIT) == 0) return;
    struct sigaction plain {};
    plain.sa_handler = SIG_DFL;
    replaced_ = ::sigaction(SIGCHLD, &plain, nullptr) == 0;
}

KeptExitStatus::~KeptExitStatus() {
    if (replaced_) ::sigaction(SIGCHLD, &previous_, nullptr);
}

namespace hosting {

void stopChildren() {
    const std::lock_guard<std::mutex> lock(children().mutex);
    children().stopped = true;
    for (const pid_t child : children().running) ::kill(-child, SIGKILL);
}

bool childrenStopped() {
    const std::lock_guard<std::mutex> lock(children().mutex);
    return children().stopped;
}

}  // namespace hosting
}  // namespace nv
