#pragma once

#include <nv/asio_forward.h>

#include <functional>
#include <memory>

namespace overseer {

/// Tells when the network has become idle: no transfer, no retry delay, no handler of either
/// queued. (A child runs inside a handler, so there is none when a handler runs.) I/O thread only.
class IdleWatch {
  public:
    /// @param context   the loop; outlives the watch
    /// @param becameIdle  called on the loop, never inline, each time that work has ended and once
    ///                    after each `workMayHaveStarted` that started none
    IdleWatch(boost::asio::io_context& context, std::function<void()> becameIdle);
    ~IdleWatch();
    IdleWatch(const IdleWatch&) = delete;
    IdleWatch& operator=(const IdleWatch&) = delete;

    bool isIdle() const;
    /// To be called after everything that entered the agent.
    void workMayHaveStarted();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace overseer
