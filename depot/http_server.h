#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "depot/catalogue.h"
#include "depot/listener.h"
#include "depot/result.h"
#include "depot/tls_context.h"

namespace depot {

/// Serves a catalogue over HTTP/1.1: `/drivers/select` and `/agents/select` answer queries, `/NAME`
/// is the package file of that name, with byte ranges. Anything else is not found; only GET and
/// HEAD are known. Connections are kept open; a thread serves one connection at a time.
class HttpServer {
  public:
    struct Settings {
        std::string address = "127.0.0.1";  ///< numeric
        int port = 0;                       ///< 0 takes any free one
        /// PEM files; without them the server speaks plain HTTP.
        struct Tls {
            std::string certificateFile;
            std::string keyFile;
        };
        std::optional<Tls> tls;
        /// Takes one line per answered request; called from any thread. Empty for no log.
        std::function<void(const std::string& line)> accessLog;
    };

    /// Reads certificate and key and binds; clients can connect from here on and are served by
    /// run().
    /// @param catalogue  must outlive the server
    static Result<std::unique_ptr<HttpServer>> open(Settings settings, Catalogue& catalogue);

    /// Scheme, address and port, such as "https://127.0.0.1:8443".
    std::string url() const;
    int port() const { return listener_.port; }

    /// Serves until `stop` becomes readable, which is never read; then ends every connection,
    /// closes the port and returns. Blocks; runs once. Fails when no connection can be accepted any
    /// more.
    Result<void> run(int stop);

  private:
    HttpServer(Settings settings, Catalogue& catalogue, Listener listener, TlsContext tls)
        : settings_(std::move(settings)),
          catalogue_(catalogue),
          listener_(std::move(listener)),
          tls_(std::move(tls)) {}

    Settings settings_;
    Catalogue& catalogue_;
    Listener listener_;
    TlsContext tls_;  ///< null for plain HTTP
};

}  // namespace depot
