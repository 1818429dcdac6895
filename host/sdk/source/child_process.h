#pragma once

#include <sys/types.h>
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

namespace nv {

/// Starts a program as the leader of a session of its own, with /dev/null as input, these two
/// descriptors as output and errors, nothing above them, and a small fixed environment.
/// @param words  the program (looked up in a fixed PATH when it has no slash) and its arguments
/// @return the child's id; negative with the reason in `problem` when it was not started
pid_t startChild(const std::vector<std::string>& words, int output, int errors,
                 std::string& problem);

/// How a child ended.
struct ChildEnd {
    int status = 127;  ///< exit status, 128 + n after signal n, 127 when it could not be learnt
    bool timedOut = false;
};

/// Waits for a child of startChild and collects it; kills its whole group once `limit` has passed.
ChildEnd waitForChild(pid_t child, std::chrono::steady_clock::duration limit);

/// Keeps the kernel from throwing exit statuses away while it lives, whatever the process around
/// has chosen to do about SIGCHLD.
class KeptExitStatus {
  public:
    KeptExitStatus();
    ~KeptExitStatus();
    KeptExitStatus(const KeptExitStatus&) = delete;
    KeptExitStatus& operator=(const KeptExitStatus&) = delete;

  private:
    struct sigaction previous_ {};
    bool replaced_ = false;
};

}  // namespace nv
