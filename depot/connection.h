#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "depot/file_descriptor.h"
#include "depot/request_head.h"

namespace depot {

/// One client's connection, plain or TLS, used by one thread. Nothing here waits for ever: each
/// wait ends at a limit, and at once when the server is to stop.
///
/// It reads a request's head itself, within bounds, and hands the HTTP library only what that
/// needs; the library writes its answer through the members of httplib::Stream.
class Connection : public httplib::Stream {
  public:
    /// @param tls   the server's TLS settings, or null for a plain connection; must outlive this
    /// @param stop  readable once the server is to stop; never read here
    Connection(FileDescriptor socket, SSL_CTX* tls, int stop);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Sets up the connection; false when the client does not come to terms.
    bool handshake();

    /// Waits for the next request's first byte; false when there will be none.
    /// @param idleLimit  how long to wait at most; asked again while waiting
    bool waitForRequest(const std::function<std::chrono::milliseconds()>& idleLimit);

    enum class HeadResult { kComplete, kClosed, kLineTooLong, kTooLarge };
    /// Reads the next request's head into `head`, the empty line at its end included.
    HeadResult readHead(std::string& head);

    /// What read() gives from now on.
    void offer(std::string text);

    /// Ends the sending side and reads away what the client still sends (a little), so that it gets
    /// to see the last answer.
    void finish();

    // What the HTTP library uses.
    bool is_readable() const override { return true; }
    bool is_writable() const override { return !broken_; }
    ssize_t read(char* bytes, size_t size) override;
    ssize_t write(const char* bytes, size_t size) override;
    void get_remote_ip_and_port(std::string& address, int& port) const override;
    void get_local_ip_and_port(std::string& address, int& port) const override;
    socket_t socket() const override { return socket_.get(); }

  private:
    using Deadline = std::chrono::steady_clock::time_point;

    bool waitFor(short events, Deadline deadline, bool endAtStop) const;
    bool waitAfter(int result, Deadline deadline, bool endAtStop) const;
    ssize_t receive(char* bytes, size_t size, Deadline deadline);
    ssize_t sendSome(const char* bytes, size_t size, Deadline deadline);

    struct TlsFree {
        void operator()(SSL* session) const { SSL_free(session); }
    };

    FileDescriptor socket_;
    std::unique_ptr<SSL, TlsFree> session_;
    const bool encrypted_;
    const int stop_;
    bool broken_ = false;
    std::string received_;  ///< beyond the last head that was read
    std::string offered_;
    std::size_t offeredTaken_ = 0;
};

}  // namespace depot
