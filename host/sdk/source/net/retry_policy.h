#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace nv::net {

/// What a response says about itself, as far as trying again and going on depend on it.
struct ResponseHead {
    int status = 0;
    std::string entityTag;
    std::string lastModified;
    std::string date;
    std::string contentRange;
    std::string retryAfter;
    std::optional<std::uint64_t> contentLength;  ///< none when chunked or not a number

    /// Takes one header line in.
    void read(const std::string& line);

  private:
    bool chunked_ = false;
};

/// Content-Range of a 206 (RFC 9110, 14.4).
struct ContentRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::optional<std::uint64_t> completeLength;
};
std::optional<ContentRange> parseContentRange(std::string_view text);

/// An IMF-fixdate such as "Sun, 06 Nov 1994 08:49:37 GMT", as seconds since the epoch.
std::optional<std::time_t> parseHttpDate(const std::string& text);

/// Retry-After, a number of seconds or a date; never negative.
std::optional<std::chrono::seconds> parseRetryAfter(const std::string& text, std::time_t now);

/// A validator that proves bytes to be of the same file (RFC 9110, 13.1.5): a strong entity tag,
/// or, where there is no tag at all, a date of change at least a minute before the answer. Empty
/// when there is none.
std::string strongValidator(const ResponseHead& head);

/// What is known of a file whose first bytes have been delivered.
struct PartialFile {
    std::uint64_t delivered = 0;
    std::string validator;                        ///< strong; empty when it cannot be gone on with
    std::optional<std::uint64_t> completeLength;  ///< none when no answer has said it
};

/// What the answer to a request without a range promises.
PartialFile describeWhole(const ResponseHead& head);
/// Whether the answer to a range request continues exactly where `file` ends, in the same version.
bool continues(const PartialFile& file, const ResponseHead& head);

/// How long to wait before trying again after a status: none when it must not be tried again.
/// A server that asks for more than a minute is left alone; one that names no time, or one that
/// has passed, is asked again after the usual one.
std::optional<std::chrono::seconds> waitAfterStatus(const ResponseHead& head,
                                                    std::chrono::seconds usual, std::time_t now);

}  // namespace nv::net
