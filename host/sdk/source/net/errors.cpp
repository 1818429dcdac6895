#include "errors.h"

#include <log4cplus/loggingmacros.h>

#include <string>

#include "curl_codes.h"

namespace nv::net {

namespace {

const char* textOf(Error error) {
    switch (error) {
        case Error::kUrlWithoutScheme:
            return "The URL has no scheme";
        case Error::kUrlSchemeNotSupported:
            return "The URL's scheme is neither http nor https";
        case Error::kUrlWithoutHost:
            return "The URL has no host";
        case Error::kUrlBadHost:
            return "The URL's host is not a host name or address";
        case Error::kUrlBadPort:
            return "The URL's port is not a number from 1 to 65535";
        case Error::kUrlCredentials:
            return "The URL carries credentials";
        case Error::kVerifyModeNotSupported:
            return "Peers are always verified (verify mode 1)";
        case Error::kCaFileNotRegular:
            return "The CA file is not a regular file of at most 16 MB";
        case Error::kCaFileWithoutCertificate:
            return "The CA file holds no certificate";
        case Error::kCaFileDamaged:
            return "The CA file holds a damaged certificate";
        case Error::kRequestUnderWay:
            return "A request is under way already";
        case Error::kLoopStopped:
            return "The event loop has stopped";
        case Error::kAnswerTooLarge:
            return "The answer is too large";
    }
    return "Unknown network error";
}

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): static, never deleted
class NetworkCategory final : public boost::system::error_category {
  public:
    const char* name() const noexcept override { return "network"; }
    std::string message(int value) const override { return textOf(static_cast<Error>(value)); }
};

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): static, never deleted
class TransferCategory final : public boost::system::error_category {
  public:
    const char* name() const noexcept override { return "transfer"; }
    std::string message(int value) const override { return curlText(value); }
};

}  // namespace

boost::system::error_code errorCode(Error error) {
    static const NetworkCategory category;
    return {static_cast<int>(error), category};
}

boost::system::error_code transferErrorCode(int curlCode) {
    static const TransferCategory category;
    return {curlCode, category};
}

void logFailure(const char* what, const std::string& url, const std::string& reason) {
    constexpr std::size_t kShown = 200;
    LOG4CPLUS_WARN(log4cplus::Logger::getRoot(),
                   "network: " << what << " of " << url.substr(0, kShown)
                               << (url.size() > kShown ? "…" : "") << " failed: " << reason);
}

}  // namespace nv::net
