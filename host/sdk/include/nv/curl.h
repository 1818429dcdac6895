#pragma once

#include <boost/function.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include <nv/asio_forward.h>

namespace nv {

/// Asynchronous downloads of files, delivered in pieces. Transfers of all clients on one loop share
/// its connections; at most so many run per server as the host allows, the rest wait in order.
///
/// Callbacks run on the loop, never from inside `start`. Each transfer completes exactly once,
/// unless the client is destroyed first: after its destructor has returned none of its callbacks is
/// called. A transfer lives on although the handle that `start` returned is dropped.
class Curl {
  public:
    /// Settings of a client, in the order in which plug-ins set them.
    struct Options {
        /// Lowest TLS version: 0 for 1.0, 1 for 1.2, 2 for 1.3.
        std::int32_t minimumTlsVersion = 1;
        /// Wait for a connection that can carry several transfers rather than open another.
        bool waitForMultiplexing = true;
        /// Sent as User-Agent; empty for the host's own.
        std::string userAgent;
        /// 0 for HTTP/1.1 only, 1 for HTTP/2 where the server has it.
        std::int32_t httpVersion = 1;
    };

    /// How a transfer ended.
    class Code {
      public:
        Code() = default;
        Code(int value, std::string text);
        bool ok() const { return value_ == 0; }
        /// libcurl's CURLcode; the HTTP status where the server answered 400 or more.
        int value() const { return value_; }
        /// For people, such as "No error" or "The requested URL returned error: 404".
        const std::string& toString() const { return text_; }

      private:
        int value_ = 0;
        std::string text_ = "No error";
    };

    /// A transfer under way; shared by the client and the callbacks.
    class Transfer {
      public:
        using Ptr = std::shared_ptr<Transfer>;

        /// Settings of one transfer, in the order in which plug-ins set them.
        struct Options {
            /// How often a transfer is tried again after a transport error, 429 or 503.
            std::int32_t retryCount = 0;
            /// Wait before each of them, in seconds; a short Retry-After of the server goes before.
            std::int32_t retryDelaySeconds = 1;
            /// Follow redirects, within https only (within http where the first URL was http).
            bool followRedirects = true;
            /// Ask for the headers only; nothing is delivered to `data`.
            bool headersOnly = false;
            /// Limit for the whole transfer once it has a slot, in seconds; 0 for none.
            std::int32_t totalTimeoutSeconds = 0;
            /// How many redirects in a row are followed.
            std::int32_t maximumRedirects = 5;
            /// Do not use a connection that is open already.
            bool freshConnection = false;
            /// Close the connection afterwards.
            bool closeConnection = false;
            /// A transfer that stays under this rate, in bytes per second, for so many seconds is
            /// given up; negative for the host's setting, 0 for no limit.
            std::int32_t lowSpeedBytesPerSecond = -1;
            std::int32_t lowSpeedSeconds = -1;
            /// HTTP proxy to go through; empty for the host's setting.
            std::string proxyHost;
            /// Port of `proxyHost`.
            std::int32_t proxyPort = 3128;
            std::string proxyUser;
            std::string proxyPassword;
        };

        /// What is told of a transfer; each slot may be empty.
        struct Callbacks {
            /// A response begins; its status.
            boost::function<void(Ptr, int status)> started;
            /// One header line of the final response, without its line end.
            boost::function<void(Ptr, const std::string& line)> header;
            /// Bytes of the body, each once and in order; none for a status of 400 or more. The
            /// result false means carry on, true ends the transfer with an error.
            boost::function<bool(Ptr, const boost::asio::const_buffer&)> data;
            /// Bytes delivered so far, and how many there will be (0 when unknown).
            boost::function<void(Ptr, std::uint64_t received, std::uint64_t total)> progress;
            /// The end, once.
            boost::function<void(Ptr, const Code&)> completed;
        };

        virtual ~Transfer() = default;
        virtual const std::string& url() const = 0;
        /// Ends the transfer; none of its callbacks is called after this has returned.
        virtual void cancel() = 0;
    };

    Curl(boost::asio::io_context& context, const Options& options);
    ~Curl();
    Curl(const Curl&) = delete;
    Curl& operator=(const Curl&) = delete;

    /// Starts a transfer. Every failure, an unusable URL included, reaches `completed`.
    Transfer::Ptr start(const std::string& url, const Transfer::Options& options,
                        const Transfer::Callbacks& callbacks);

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace nv
