#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace nv::net {

/// Something that happened to a transfer, to be told to its owner outside of libcurl.
struct TransferEvent {
    enum class Kind { kStarted, kHeader, kData, kCompleted };
    Kind kind = Kind::kStarted;
    int status = 0;
    std::string text;  ///< the header line, or the bytes
};

/// Turns what libcurl hands over (header lines of every response on the way, redirects and interim
/// answers included) into the events of the one response that counts.
class ResponseRecorder {
  public:
    explicit ResponseRecorder(bool followsRedirects) : followsRedirects_(followsRedirects) {}

    /// A header line as received, its line end included.
    void headerLine(std::string_view line);
    void body(const char* data, std::size_t size);
    void completed();

    /// Status of the latest response, 0 before the first.
    int status() const { return status_; }
    bool hasEvents() const { return !events_.empty(); }
    /// Takes the oldest event out.
    TransferEvent takeEvent();

  private:
    bool leadsElsewhere() const;
    void headersComplete();

    const bool followsRedirects_;
    int status_ = 0;
    bool inHeaders_ = false;
    bool final_ = false;  ///< the response that counts has begun; later lines are trailers
    std::size_t headerBytes_ = 0;
    std::vector<std::string> lines_;
    std::deque<TransferEvent> events_;
};

}  // namespace nv::net
