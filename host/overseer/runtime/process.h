#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/result.h"

/// What concerns the process as a whole: its limits, its signals, its own replacement.
namespace overseer::process {

/// Raises the soft limit of open files to the hard one.
/// @return the limit in force
std::size_t raiseDescriptorLimit();

/// Puts /dev/null in place of each standard stream that is closed, so that nothing that is opened
/// later is taken for one. The very first thing to be called.
void openStandardStreams();

/// Blocks SIGINT and SIGTERM in the calling thread and all it starts, and ignores SIGPIPE. To be
/// called first, before another thread exists.
void takeSignals();

/// Waits on a thread of its own for the signals that takeSignals blocked.
class SignalWaiter {
  public:
    /// `stop` is called on that thread at the first SIGINT or SIGTERM. The second ends the process
    /// at once: whoever sends it has waited long enough.
    explicit SignalWaiter(std::function<void(int signal)> stop);
    ~SignalWaiter();
    SignalWaiter(const SignalWaiter&) = delete;
    SignalWaiter& operator=(const SignalWaiter&) = delete;

  private:
    void wait();

    std::function<void(int)> stop_;
    std::atomic<bool> done_{false};
    std::thread thread_;
};

/// Where the running program lies. To be asked early: after an upgrade the file is another one, and
/// that is the one to start again.
std::string ownProgram();

/// Replaces the process by a start of `program` with the same arguments: the process id stays.
/// Marks every descriptor from 3 up close-on-exec and resets the signal mask before. Returns only
/// when it failed.
Error restartInPlace(const std::string& program, const std::vector<std::string>& arguments);

}  // namespace overseer::process
