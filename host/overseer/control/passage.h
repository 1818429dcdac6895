#pragma once

#include <functional>

namespace overseer::control {

class ServiceDesk;

/// The way from the server's thread to the I/O thread and back.
class Passage {
  public:
    virtual ~Passage() = default;
    /// Runs `question` on the I/O thread; drops it when the server has stopped by then. What it
    /// captures may be destroyed on either thread. Any thread.
    virtual void toServices(std::function<void(ServiceDesk&)> question) = 0;
    /// Runs `reply` on the server's thread. Only on the I/O thread, while the desk is there.
    virtual void toServer(std::function<void()> reply) = 0;
};

}  // namespace overseer::control
