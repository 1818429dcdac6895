#pragma once

#include <boost/function.hpp>
#include <boost/system/error_code.hpp>
#include <memory>
#include <string>

#include <nv/asio_forward.h>

namespace nv::net::http {

/// An absolute http or https URL.
class Url {
  public:
    Url() = default;
    /// Takes a URL in leniently: characters that may not stand in a request line are kept as they
    /// are and percent-encoded on the wire only. `error` is set for a text without scheme or host,
    /// with a bad port, credentials or another scheme.
    static Url createUrl(const std::string& text, boost::system::error_code& error);
    /// As given.
    const std::string& text() const { return text_; }
    /// As sent (RFC 3986): blanks, double quotes, control and non-ASCII bytes as %XX.
    std::string wireText() const;

  private:
    std::string text_;
};

/// A plain GET.
class HttpRequest {
  public:
    explicit HttpRequest(Url url);
    const Url& url() const { return url_; }

  private:
    Url url_;
};

/// An answer: status 0 and no payload when none came.
class HttpResponse {
  public:
    HttpResponse() = default;
    HttpResponse(int status, std::string payload);
    int status() const { return status_; }
    const std::string& payload() const { return payload_; }

  private:
    int status_ = 0;
    std::string payload_;
};

/// One request at a time, its answer kept in memory (at most 64 MB).
///
/// The handler is called once on the loop, never from inside asyncRequest, unless `cancel` or the
/// destructor came first: after either has returned it is not called. It may destroy the client:
/// handler and response are moved to the stack before the call. Follows no redirect.
class HttpClient {
  public:
    using Handler = boost::function<void(const HttpResponse&, const boost::system::error_code&)>;

    HttpClient(boost::asio::io_context& context, Handler handler);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// The file of certificate authorities that the peer must be verified against.
    void setVerifyFile(const std::string& path);
    /// 1: verify the peer. There is no other mode; any other value makes asyncRequest fail.
    void setVerifyMode(int mode);
    /// Starts the request. An error at once, and no call of the handler, when the CA file cannot be
    /// read or parsed, a request is under way already or the loop has stopped.
    boost::system::error_code asyncRequest(const HttpRequest& request);
    void cancel();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace nv::net::http
