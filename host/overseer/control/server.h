#pragma once

#include <memory>
#include <string>

#include <nv/asio_forward.h>

#include "common/result.h"
#include "control/control_services.h"
#include "control/limits.h"

namespace overseer::control {

/// The control interface: HTTP/1.1 over a Unix socket that only its owner, and root, may open.
///
/// It has a thread of its own, which never touches the host: every request is posted to the I/O
/// thread, answered there out of `ControlServices`, and written by the own thread.
class Server {
  public:
    /// Listens from here on. A socket file that an earlier process left is removed, so the caller
    /// holds the root's lock; the folder is made where it is missing, open to its owner only. On
    /// the I/O thread, or before its loop runs.
    /// @param loop  the I/O thread's; it and `services` outlive the server
    static Result<std::unique_ptr<Server>> start(const std::string& socketPath,
                                                 ControlServices& services,
                                                 boost::asio::io_context& loop,
                                                 const Limits& limits = {});
    /// Stops.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Answers whoever waits that the host stops, lets answers under way go out (for up to
    /// Limits::farewell) and removes the socket file. What the I/O thread answered before gets out
    /// first. On the I/O thread, or once its loop runs no more. `services` are not called again.
    void stop();

  private:
    class Listener;
    explicit Server(std::unique_ptr<Listener> listener);
    std::unique_ptr<Listener> listener_;
};

}  // namespace overseer::control
