#pragma once

#include <string>

namespace nv::net {

/// The CURLcodes that the layers above libcurl give or look at, by value, so that they compile
/// without its header.
namespace curl_code {
constexpr int kOk = 0;
constexpr int kFailedInit = 2;
constexpr int kUrlMalformed = 3;
constexpr int kPartialFile = 18;
constexpr int kWriteError = 23;
constexpr int kTimedOut = 28;
constexpr int kRangeError = 33;
constexpr int kAbortedByCallback = 42;
constexpr int kReceiveError = 56;
constexpr int kTooLarge = 63;
}  // namespace curl_code

/// libcurl's text for a CURLcode.
std::string curlText(int curlCode);
/// Whether the network may have failed, rather than what was asked or how it is set up: trying
/// again can help.
bool isTransportFailure(int curlCode);

}  // namespace nv::net
