#pragma once

#include <ctime>

/// The host's clock.
class KernelX {
  public:
    /// Wall-clock time since the epoch, UTC.
    static void gettime(timespec* now);
};
