#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <nv/asio_forward.h>

namespace nv::hosting {

/// What one transfer asks of the transport: a single GET or HEAD, without retries.
struct TransferRequest {
    std::string url;     ///< fit for the wire
    std::string caFile;  ///< empty for the transport's own
    bool headersOnly = false;
    bool followRedirects = false;
    int maximumRedirects = 5;
    bool freshConnection = false;
    bool closeConnection = false;
    bool http2 = true;
    bool waitForMultiplexing = true;
    int minimumTlsVersion = 1;             ///< as nv::Curl::Options has it
    std::chrono::seconds totalTimeout{0};  ///< from the moment it has a slot; 0 for none
    int lowSpeedBytesPerSecond = 0;
    std::chrono::seconds lowSpeedTime{0};
    std::string proxyHost;
    int proxyPort = 0;
    std::string proxyUser;
    std::string proxyPassword;
    std::string userAgent;
    std::uint64_t resumeFrom = 0;  ///< sent as Range when not 0
    std::string ifRange;           ///< validator to send beside it
};

/// How a transfer ended.
struct TransferResult {
    int curlCode = 0;  ///< CURLcode
    int status = 0;    ///< of the last response, 0 when none came
    std::string message;
    bool timedOutBehindHandler = false;  ///< a limit passed while a handler blocked the loop: ours
};

/// What is told of a transfer while it runs. All run on the loop, never inside start or cancel.
struct TransferHandlers {
    std::function<void(int status)> started;
    std::function<void(const std::string& line)> header;
    /// False ends the transfer.
    std::function<bool(const char* data, std::size_t size, int status)> data;
    std::function<void(std::uint64_t received, std::uint64_t total)> progress;
    std::function<void(const TransferResult&)> completed;
};

/// Moves bytes for all clients on one loop. Tests put a recording one in its place.
class Transport {
  public:
    using Id = std::uint64_t;
    virtual ~Transport() = default;
    /// Whether `caFile` can serve to verify peers; clear when it can.
    virtual boost::system::error_code checkCaFile(const std::string& caFile) = 0;
    /// Queues a transfer; 0 when the loop has stopped or the transport was shut down.
    virtual Id start(TransferRequest request, TransferHandlers handlers) = 0;
    /// Ends it; none of its handlers is called any more. Unknown ids are ignored.
    virtual void cancel(Id id) = 0;
    /// Transfers queued or under way, and retry waits of clients.
    virtual std::size_t pending() const = 0;
    /// Clients count their retry waits here, so that `pending` knows of them.
    virtual void waitBegan() = 0;
    virtual void waitEnded() = 0;
    /// Sets the one observer that is called, on the loop, whenever `pending` has fallen to 0; empty
    /// for none.
    virtual void observeIdle(std::function<void()> observer) = 0;
};

/// Limits and surroundings of the host's transport.
struct TransportSettings {
    int transfersPerServer = 6;
    std::string caFile;  ///< of nv::Curl transfers
    std::chrono::seconds connectTimeout{30};
    std::chrono::seconds queryTimeout{300};  ///< of an HttpClient request, once it has a slot
    int lowSpeedBytesPerSecond = 1024;       ///< of nv::Curl transfers
    std::chrono::seconds lowSpeedTime{60};
    std::size_t maximumAnswer = 64u << 20;     ///< bytes of an HttpClient payload
    std::uint64_t maximumDownload = 1u << 30;  ///< bytes of an nv::Curl transfer
    std::string proxyHost;
    int proxyPort = 0;
    std::string proxyUser;
    std::string proxyPassword;
    std::string userAgent = "overseer";
    /// Told of each nv::Curl transfer that failed, on the loop, before its owner is; may be empty.
    std::function<void(const std::string& url, const std::string& reason)> downloadFailed;
};

/// The one transport of a loop, over libcurl's multi interface; made on first use. Its settings may
/// be changed for transfers that start later.
void configureTransport(boost::asio::io_context& context, TransportSettings settings);
const TransportSettings& transportSettings(boost::asio::io_context& context);
Transport& transportOf(boost::asio::io_context& context);
/// Whether the file can serve to verify peers: a regular one with at least one certificate and no
/// damaged one. Clear when it can.
boost::system::error_code checkCaFile(const std::string& path);
/// Puts another transport in place, for tests.
void replaceTransport(boost::asio::io_context& context, std::shared_ptr<Transport> transport);

}  // namespace nv::hosting
