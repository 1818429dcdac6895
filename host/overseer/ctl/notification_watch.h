#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "ctl/session.h"

namespace overseer::ctl {

/// The number that the next notification of the host will get.
Answered<std::uint64_t> numberAfterNewest(Session& session);

/// Waits until nothing is under way on the host's network, `limit` at most. @return whether it is
/// idle
Answered<bool> awaitIdle(Session& session, std::chrono::seconds limit);

/// What one agent tells user interfaces from the watch's beginning on: for commands whose outcome
/// comes later.
class NotificationWatch {
  public:
    /// Begins now. `session` outlives it.
    static Answered<NotificationWatch> begin(Session& session, std::string agent);
    /// The nodes that came since the last call, as XML text, in order.
    Answered<std::vector<std::string>> take();

  private:
    NotificationWatch(Session& session, std::string agent, std::uint64_t next)
        : session_(&session), agent_(std::move(agent)), next_(next) {}

    Session* session_;
    std::string agent_;
    std::uint64_t next_;  ///< number that is read next
};

}  // namespace overseer::ctl
