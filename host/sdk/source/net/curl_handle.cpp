// One transfer as libcurl sees it. Made by the transport when the transfer has a slot; driven by
// CurlMulti.
#include "curl_handle.h"

#include <curl/curl.h>
#include <fcntl.h>

#include <algorithm>
#include <limits>

#include "curl_codes.h"

namespace nv::net {

namespace {

static_assert(CURL_ERROR_SIZE <= 256);

// libcurl opens its sockets without close-on-exec; children must not get them.
int onSocket(void*, curl_socket_t socket, curlsocktype) {
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
    return CURL_SOCKOPT_OK;
}

long lowestTlsVersion(int version) {
    if (version <= 0) return CURL_SSLVERSION_TLSv1_0;
    return version == 1 ? CURL_SSLVERSION_TLSv1_2 : CURL_SSLVERSION_TLSv1_3;
}

long milliseconds(std::chrono::seconds time) {
    constexpr long kLongest = std::numeric_limits<int>::max() / 1000;
    return std::clamp<long>(time.count(), 0, kLongest) * 1000;
}

bool isTls(const std::string& url) {
    return url.size() > 4 && (url[4] == 's' || url[4] == 'S');
}

}  // namespace

CurlHandle::CurlHandle(const hosting::TransferRequest& request, void* owner)
    : easy_(curl_easy_init()), recorder_(request.followRedirects) {
    if (easy_ == nullptr) {
        refused_ = CURLE_FAILED_INIT;
        return;
    }
    set(CURLOPT_PRIVATE, owner);
    set(CURLOPT_ERRORBUFFER, errorText_);
    set(CURLOPT_HEADERFUNCTION, &CurlHandle::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &CurlHandle::onBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_SOCKOPTFUNCTION, &onSocket);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // a cancelled transfer does not wait for a silent name server
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
}

CurlHandle::~CurlHandle() {
    curl_easy_cleanup(easy_);
    curl_slist_free_all(static_cast<curl_slist*>(headers_));
}

template <typename Option, typename Value>
void CurlHandle::set(Option option, Value value) {
    if (refused_ != CURLE_OK) return;
    refused_ = curl_easy_setopt(static_cast<CURL*>(easy_), option, value);
}

int CurlHandle::configure(const hosting::TransferRequest& request,
                          std::chrono::seconds connectTimeout, std::chrono::seconds caFileAge) {
    set(CURLOPT_URL, request.url.c_str());
    if (request.headersOnly) set(CURLOPT_NOBODY, 1L);
    set(CURLOPT_USERAGENT, request.userAgent.c_str());
    configureConnection(request);
    configureTls(request, caFileAge);
    configureLimits(request, connectTimeout);
    configureRange(request);
    return refused_;
}

void CurlHandle::configureConnection(const hosting::TransferRequest& request) {
    // The same scheme all the way: neither down to http nor to what else libcurl can fetch.
    const char* scheme = isTls(request.url) ? "https" : "http";
    set(CURLOPT_PROTOCOLS_STR, scheme);
    set(CURLOPT_REDIR_PROTOCOLS_STR, scheme);
    set(CURLOPT_FOLLOWLOCATION, request.followRedirects ? 1L : 0L);
    set(CURLOPT_MAXREDIRS, static_cast<long>(std::max(0, request.maximumRedirects)));
    set(CURLOPT_HTTP_VERSION,
        static_cast<long>(request.http2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1));
    // Over plain http nothing is ever multiplexed: waiting would only hold up the others.
    const bool multiplexing = request.http2 && isTls(request.url);
    set(CURLOPT_PIPEWAIT, request.waitForMultiplexing && multiplexing ? 1L : 0L);
    set(CURLOPT_FRESH_CONNECT, request.freshConnection ? 1L : 0L);
    set(CURLOPT_FORBID_REUSE, request.closeConnection ? 1L : 0L);
    // Empty texts, unlike none, keep libcurl from asking the environment.
    set(CURLOPT_NOPROXY, "");
    set(CURLOPT_PROXY, request.proxyHost.c_str());
    if (request.proxyHost.empty()) return;
    set(CURLOPT_PROXYTYPE, static_cast<long>(CURLPROXY_HTTP));
    set(CURLOPT_PROXYPORT, static_cast<long>(request.proxyPort));
    if (request.proxyUser.empty()) return;
    set(CURLOPT_PROXYUSERNAME, request.proxyUser.c_str());
    set(CURLOPT_PROXYPASSWORD, request.proxyPassword.c_str());
}

void CurlHandle::configureTls(const hosting::TransferRequest& request,
                              std::chrono::seconds caFileAge) {
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_SSLVERSION, lowestTlsVersion(request.minimumTlsVersion));
    set(CURLOPT_CAINFO, request.caFile.c_str());
    // The distribution's folder of authorities would be trusted beside the file.
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    set(CURLOPT_CA_CACHE_TIMEOUT, static_cast<long>(caFileAge.count()));
}

void CurlHandle::configureLimits(const hosting::TransferRequest& request,
                                 std::chrono::seconds connectTimeout) {
    set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(connectTimeout));
    set(CURLOPT_TIMEOUT_MS, milliseconds(request.totalTimeout));
    if (request.lowSpeedBytesPerSecond <= 0 || request.lowSpeedTime.count() <= 0) return;
    set(CURLOPT_LOW_SPEED_LIMIT, static_cast<long>(request.lowSpeedBytesPerSecond));
    set(CURLOPT_LOW_SPEED_TIME, milliseconds(request.lowSpeedTime) / 1000);
}

void CurlHandle::configureRange(const hosting::TransferRequest& request) {
    if (request.resumeFrom == 0) return;
    set(CURLOPT_RANGE, (std::to_string(request.resumeFrom) + "-").c_str());
    if (request.ifRange.empty()) return;
    const std::string line = "If-Range: " + request.ifRange;
    headers_ = curl_slist_append(nullptr, line.c_str());
    if (headers_ == nullptr) refused_ = CURLE_OUT_OF_MEMORY;
    set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(headers_));
}

bool CurlHandle::connected() const {
    curl_off_t microseconds = 0;
    curl_easy_getinfo(static_cast<CURL*>(easy_), CURLINFO_PRETRANSFER_TIME_T, &microseconds);
    return microseconds > 0;
}

hosting::TransferResult CurlHandle::result(int curlCode) const {
    hosting::TransferResult result;
    result.curlCode = curlCode;
    result.status = recorder_.status();
    const bool detailed = curlCode != CURLE_OK && errorText_[0] != '\0';
    result.message = detailed ? errorText_ : curlText(curlCode);
    return result;
}

std::size_t CurlHandle::onHeader(char* data, std::size_t size, std::size_t count, void* self) {
    static_cast<CurlHandle*>(self)->recorder_.headerLine({data, size * count});
    return size * count;
}

std::size_t CurlHandle::onBody(char* data, std::size_t size, std::size_t count, void* self) {
    auto& handle = *static_cast<CurlHandle*>(self);
    if (!handle.sawBody_) {
        curl_off_t length = 0;
        curl_easy_getinfo(static_cast<CURL*>(handle.easy_), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T,
                          &length);
        handle.announcedLength_ = length > 0 ? static_cast<std::uint64_t>(length) : 0;
        handle.sawBody_ = true;
    }
    handle.recorder_.body(data, size * count);
    return size * count;
}

}  // namespace nv::net
