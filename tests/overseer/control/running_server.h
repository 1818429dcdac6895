#pragma once

#include <functional>
#include <memory>
#include <string>

#include "control/limits.h"
#include "fake_services.h"

namespace overseer::control {

/// A temporary controller root, removed at the end.
class TemporaryRoot {
  public:
    /// @param extra  further path below the temporary folder, to make the root's path long
    explicit TemporaryRoot(const std::string& extra = "");
    ~TemporaryRoot();
    const std::string& path() const { return path_; }

  private:
    std::string top_;
    std::string path_;
};

/// The real server before fake services, on an I/O thread of its own.
class RunningServer {
  public:
    explicit RunningServer(std::string root, const Limits& limits = {});
    ~RunningServer();

    /// Runs `task` on the I/O thread and waits for it.
    void onLoop(const std::function<void(FakeServices&)>& task);
    /// Stops the server on the I/O thread, as a host does.
    void stop();
    /// Listens again, as after a restart of the host; what the services hold stays.
    void startAgain();

  private:
    struct Loop;
    std::string root_;
    Limits limits_;
    std::unique_ptr<Loop> loop_;
};

/// A peer that writes whatever bytes it likes. Each wait fails the test after ten seconds.
class RawPeer {
  public:
    explicit RawPeer(const std::string& root);
    ~RawPeer();
    RawPeer(RawPeer&& other) noexcept;

    void send(const std::string& bytes);
    /// Everything up to the end of the connection.
    std::string readToEnd();
    /// Everything until `text` has come; what came so far when the connection ends before.
    std::string readUntil(const std::string& text);

  private:
    bool receive();
    int socket_;
    std::string received_;
};

/// One request and the whole answer, head included.
std::string exchange(const std::string& root, const std::string& method, const std::string& target,
                     const std::string& body = "");

/// `GET /host`, again and again while the server says that it has too many connections: it learns
/// of ended ones after their peers do. Ten seconds at most.
std::string exchangeOnceServed(const std::string& root);

}  // namespace overseer::control
