#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "depot/result.h"

namespace depot {

/// What a server answered.
struct HttpAnswer {
    long status = 0;
    std::string contentType;
    std::string body;
};

/// HTTP requests one after the other over connections that are kept open. Servers are not trusted:
/// no redirects, at most 64 MB, peer and host name verified, and every request ends by its time
/// limit. One thread at a time.
class HttpClient {
  public:
    /// @param caFile   certificates to trust, a PEM file; empty for the system's
    /// @param abandon  asked about once a second while an answer is waited for; true ends the wait
    explicit HttpClient(std::string caFile = {}, std::function<bool()> abandon = {});
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Fails when no answer arrived at all; the message names the URL without its query.
    Result<HttpAnswer> get(const std::string& url, std::chrono::milliseconds limit);
    Result<HttpAnswer> post(const std::string& url, const std::string& contentType,
                            const std::string& body, std::chrono::milliseconds limit);

  private:
    struct Handle;
    Result<HttpAnswer> perform(const std::string& url, std::chrono::milliseconds limit);

    std::unique_ptr<Handle> handle_;
    const std::string caFile_;
    const std::function<bool()> abandon_;
};

}  // namespace depot
