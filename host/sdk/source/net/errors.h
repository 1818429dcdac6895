#pragma once

#include <boost/system/error_code.hpp>
#include <string>

namespace nv::net {

/// Failures that the network layer finds itself.
enum class Error {
    kUrlWithoutScheme = 1,
    kUrlSchemeNotSupported,
    kUrlWithoutHost,
    kUrlBadHost,
    kUrlBadPort,
    kUrlCredentials,
    kVerifyModeNotSupported,
    kCaFileNotRegular,
    kCaFileWithoutCertificate,
    kCaFileDamaged,
    kRequestUnderWay,
    kLoopStopped,
    kAnswerTooLarge,
};

boost::system::error_code errorCode(Error error);
/// A CURLcode with libcurl's own text; clear for 0.
boost::system::error_code transferErrorCode(int curlCode);

/// One WARN line: what failed, at which address, and why. The agent's own lines name the outcome;
/// this one names the peer.
void logFailure(const char* what, const std::string& url, const std::string& reason);

}  // namespace nv::net
