#pragma once

namespace nv {

/// The host's log set-up. Log lines themselves go to log4cplus.
class Logger {
  public:
    static bool hasBeenInitialized();
    /// Sets log4cplus up: as the host configured it, to standard error where no host did.
    /// Idempotent.
    static void initialize();
};

}  // namespace nv
