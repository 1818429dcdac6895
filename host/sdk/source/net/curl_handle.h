#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <nvhost/transport.h>

#include "response_recorder.h"

namespace nv::net {

/// One easy handle of libcurl, set up for one transfer. What arrives is recorded only; nothing of
/// it calls anybody from inside libcurl.
class CurlHandle {
  public:
    /// `owner` is what CurlMulti hands back when the transfer has ended.
    CurlHandle(const hosting::TransferRequest& request, void* owner);
    ~CurlHandle();
    CurlHandle(const CurlHandle&) = delete;
    CurlHandle& operator=(const CurlHandle&) = delete;

    /// Applies the request and the transport's limits. `caFileAge` is for how long the present
    /// version of the CA file has been known: what libcurl remembers of it from before is not used.
    /// @return a CURLcode; anything but 0 means that the handle must not be used
    int configure(const hosting::TransferRequest& request, std::chrono::seconds connectTimeout,
                  std::chrono::seconds caFileAge);

    ResponseRecorder& recorder() { return recorder_; }
    /// Length that the response announced; 0 when unknown.
    std::uint64_t announcedLength() const { return announcedLength_; }
    /// Whether a connection was made (and its handshake done).
    bool connected() const;
    /// What libcurl says of an end with `curlCode`.
    hosting::TransferResult result(int curlCode) const;
    /// The CURL*.
    void* native() const { return easy_; }

  private:
    template <typename Option, typename Value>
    void set(Option option, Value value);
    void configureConnection(const hosting::TransferRequest& request);
    void configureTls(const hosting::TransferRequest& request, std::chrono::seconds caFileAge);
    void configureLimits(const hosting::TransferRequest& request,
                         std::chrono::seconds connectTimeout);
    void configureRange(const hosting::TransferRequest& request);

    static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* self);

    void* easy_;
    void* headers_ = nullptr;  ///< curl_slist
    int refused_ = 0;          ///< first option that libcurl did not take
    std::uint64_t announcedLength_ = 0;
    bool sawBody_ = false;
    ResponseRecorder recorder_;
    char errorText_[256] = {};
};

}  // namespace nv::net
