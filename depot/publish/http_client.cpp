#include "depot/publish/http_client.h"

#include <curl/curl.h>

#include <array>
#include <mutex>
#include <string_view>

namespace depot {
namespace {

constexpr std::size_t kLargestAnswer = std::size_t{64} << 20;
constexpr long kConnectSeconds = 5;

struct Received {
    std::string body;
    bool tooLarge = false;
};

std::size_t receive(char* data, std::size_t size, std::size_t count, void* target) {
    auto& received = *static_cast<Received*>(target);
    if (size * count > kLargestAnswer - received.body.size()) {
        received.tooLarge = true;
        return 0;
    }
    received.body.append(data, size * count);
    return size * count;
}

int askWhetherToAbandon(void* abandon, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return (*static_cast<const std::function<bool()>*>(abandon))() ? 1 : 0;
}

std::string withoutQuery(const std::string& url) {
    return url.substr(0, url.find('?'));
}

}  // namespace

struct HttpClient::Handle {
    CURL* curl = nullptr;
    curl_slist* headers = nullptr;
    ~Handle() {
        curl_slist_free_all(headers);
        curl_easy_cleanup(curl);
    }
};

HttpClient::HttpClient(std::string caFile, std::function<bool()> abandon)
    : handle_(std::make_unique<Handle>()),
      caFile_(std::move(caFile)),
      abandon_(std::move(abandon)) {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    handle_->curl = curl_easy_init();
}

HttpClient::~HttpClient() = default;

Result<HttpAnswer> HttpClient::get(const std::string& url, std::chrono::milliseconds limit) {
    if (handle_->curl == nullptr) return failure("libcurl cannot be used");
    curl_easy_reset(handle_->curl);
    return perform(url, limit);
}

Result<HttpAnswer> HttpClient::post(const std::string& url, const std::string& contentType,
                                    const std::string& body, std::chrono::milliseconds limit) {
    if (handle_->curl == nullptr) return failure("libcurl cannot be used");
    curl_easy_reset(handle_->curl);
    curl_slist_free_all(handle_->headers);
    handle_->headers = curl_slist_append(nullptr, ("Content-Type: " + contentType).c_str());
    // A server that refuses early should not make the client wait for its go-ahead first.
    handle_->headers = curl_slist_append(handle_->headers, "Expect:");
    curl_easy_setopt(handle_->curl, CURLOPT_HTTPHEADER, handle_->headers);
    curl_easy_setopt(handle_->curl, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(handle_->curl, CURLOPT_POSTFIELDS, body.data());
    return perform(url, limit);
}

Result<HttpAnswer> HttpClient::perform(const std::string& url, std::chrono::milliseconds limit) {
    CURL* curl = handle_->curl;
    Received received;
    std::array<char, CURL_ERROR_SIZE> reason{};
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &receive);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &received);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, reason.data());
    if (abandon_) {
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &askWhetherToAbandon);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &abandon_);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    }
    if (!caFile_.empty()) curl_easy_setopt(curl, CURLOPT_CAINFO, caFile_.c_str());
    const CURLcode code = curl_easy_perform(curl);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
    if (received.tooLarge) return failure(withoutQuery(url) + ": answers with more than 64 MB");
    if (code == CURLE_ABORTED_BY_CALLBACK) return failure(withoutQuery(url) + ": interrupted");
    if (code != CURLE_OK) {
        const std::string_view detail = reason.data();
        return failure(withoutQuery(url) + ": " +
                       (detail.empty() ? curl_easy_strerror(code) : std::string(detail)));
    }
    HttpAnswer answer;
    answer.body = std::move(received.body);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.status);
    const char* type = nullptr;
    curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
    if (type != nullptr) answer.contentType = type;
    return answer;
}

}  // namespace depot
