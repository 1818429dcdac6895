#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "test_authority.h"

namespace nv::test {

/// A request as the server read it; header names in lower case.
struct Request {
    std::string method;
    std::string target;
    std::map<std::string, std::string> headers;
    std::string header(const std::string& name) const;
};

class LoopbackServer;

/// One connection, in the hands of a behaviour.
class Connection {
  public:
    void send(const std::string& bytes);
    /// A whole answer with its length.
    void answer(int status, const std::string& body, const std::string& headers = "");
    /// Cuts the connection: no more requests on it, and no orderly end of TLS.
    void cut();
    /// Returns once the server was told to let go, the client has gone or the server ends.
    void hold();
    /// The same, but not longer than that.
    void holdFor(std::chrono::milliseconds time);
    /// Whether it was neither cut nor found gone.
    bool open() const { return !cut_; }

  private:
    friend class LoopbackServer;
    Connection(LoopbackServer& server, int socket) : server_(server), socket_(socket) {}
    bool shakeHands();
    std::optional<Request> read();
    std::size_t readSome(char* buffer, std::size_t size);

    LoopbackServer& server_;
    const int socket_;
    std::shared_ptr<SSL> tls_;
    bool cut_ = false;
    std::string unread_;
};

/// A small HTTP server on a port of 127.0.0.1: one behaviour per path, a thread per connection.
class LoopbackServer {
  public:
    using Behaviour = std::function<void(Connection&, const Request&)>;

    /// TLS where there is an identity to show.
    explicit LoopbackServer(std::optional<Identity> identity = std::nullopt,
                            bool holdHandshakes = false, int highestTls = 0);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    /// What happens on a path, whatever its query; before the first request to it.
    void on(const std::string& path, Behaviour behaviour);
    std::string url(const std::string& target) const;
    /// Lets go what is held now and later.
    void letGo();

    std::vector<Request> requests() const;
    int connections() const;  ///< ever made
    int mostAtOnce() const;   ///< open at one time
    bool http2WasOffered() const;

  private:
    friend class Connection;
    void accept();
    void serve(int socket);
    void serveRequests(Connection& connection);
    void waitForRelease(int socket, int milliseconds = -1);
    Behaviour behaviourOf(const std::string& target);
    static int chooseProtocol(SSL*, const unsigned char** out, unsigned char* outSize,
                              const unsigned char* in, unsigned int inSize, void* self);

    std::shared_ptr<SSL_CTX> tls_;
    const bool holdHandshakes_;
    int port_ = 0;  ///< set with the listener
    int listener_ = -1;
    int release_ = -1;  ///< eventfd, readable once released
    int ending_ = -1;   ///< eventfd, readable once the server ends

    mutable std::mutex mutex_;
    std::map<std::string, Behaviour> behaviours_;
    std::vector<Request> requests_;
    std::vector<std::thread> threads_;
    int made_ = 0;
    int open_ = 0;
    int most_ = 0;
    bool http2Offered_ = false;
    std::thread acceptor_;
};

}  // namespace nv::test
