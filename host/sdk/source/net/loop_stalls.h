#pragma once

#include <algorithm>
#include <chrono>

namespace nv::net {

/// How long the loop was kept from its work by handlers that blocked. Limits of transfers run on
/// meanwhile, so a limit that is passed only when this time is counted is not the server's fault.
class LoopStalls {
  public:
    using Clock = std::chrono::steady_clock;

    /// What takes less is the loop's ordinary work.
    static constexpr std::chrono::milliseconds kShortest{250};

    /// The loop did nothing else from `from` to `to`; what was noted of it before counts once.
    void note(Clock::time_point from, Clock::time_point to) {
        from = std::max(from, lastEnd_);
        if (to - from < kShortest) return;
        total_ += to - from;
        lastEnd_ = to;
    }

    /// All of it since the start.
    Clock::duration total() const { return total_; }
    Clock::time_point lastEnd() const { return lastEnd_; }

  private:
    Clock::duration total_{0};
    Clock::time_point lastEnd_{};
};

}  // namespace nv::net
