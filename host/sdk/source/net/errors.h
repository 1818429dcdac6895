#pragma once

#include <boost/system/error_code.hpp>

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

}  // namespace nv::net
