#include "curl_codes.h"

#include <curl/curl.h>

namespace nv::net {

static_assert(curl_code::kOk == CURLE_OK && curl_code::kFailedInit == CURLE_FAILED_INIT &&
              curl_code::kUrlMalformed == CURLE_URL_MALFORMAT &&
              curl_code::kPartialFile == CURLE_PARTIAL_FILE &&
              curl_code::kWriteError == CURLE_WRITE_ERROR &&
              curl_code::kTimedOut == CURLE_OPERATION_TIMEDOUT &&
              curl_code::kRangeError == CURLE_RANGE_ERROR &&
              curl_code::kAbortedByCallback == CURLE_ABORTED_BY_CALLBACK &&
              curl_code::kReceiveError == CURLE_RECV_ERROR);

std::string curlText(int curlCode) {
    return curl_easy_strerror(static_cast<CURLcode>(curlCode));
}

bool isTransportFailure(int curlCode) {
    switch (curlCode) {
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
        case CURLE_HTTP2:
        case CURLE_PARTIAL_FILE:
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_HTTP2_STREAM:
        case CURLE_PROXY:
            return true;
        default:
            return false;
    }
}

}  // namespace nv::net
