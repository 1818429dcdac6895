#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace depot {

/// The header fields of a request that decide which bytes of a file are sent.
struct RangeRequest {
    std::optional<std::string> range;
    std::optional<std::string> ifRange;
};

/// What a file is at the moment it is asked for.
struct FileFacts {
    std::int64_t size = 0;
    std::string entityTag;  ///< a strong one, with its quotes
};

/// Which answer a request for a file gets.
struct RangePlan {
    int status = 200;  ///< 200 whole, 206 part, 416 nothing of it lies in the file
    std::int64_t offset = 0;
    std::int64_t length = 0;
    std::optional<std::string> contentRange;
};

/// Decides it. One byte range is served; several ranges, another unit or a header field that cannot
/// be read get the whole file. `If-Range` holds only for the very same strong entity tag: a date is
/// too coarse to tell two states of a file apart.
RangePlan planRange(const RangeRequest& request, const FileFacts& file);

}  // namespace depot
