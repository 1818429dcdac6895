#include "depot/byte_range.h"

#include <algorithm>
#include <charconv>

namespace depot {
namespace {

constexpr std::string_view kUnit = "bytes=";

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// A number of decimal digits only; larger ones than fit are the largest that does.
std::optional<std::int64_t> readPosition(std::string_view digits) {
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    std::int64_t position = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), position);
    return read.ec == std::errc() ? position : INT64_MAX;
}

struct Span {
    std::int64_t first = 0;
    std::int64_t last = -1;  ///< before `first` when nothing lies in the file
};

/// The one range of a Range field; nothing when it is not exactly one that can be read.
std::optional<Span> readRange(std::string_view field, std::int64_t size) {
    field = trimmed(field);
    if (!field.starts_with(kUnit)) return std::nullopt;
    const std::string_view range = trimmed(field.substr(kUnit.size()));
    const std::size_t dash = range.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = readPosition(range.substr(0, dash));
    const auto last = readPosition(range.substr(dash + 1));
    if (dash == 0) {
        if (!last) return std::nullopt;
        return Span{size - std::min(*last, size), size - 1};
    }
    if (!first || (!last && dash + 1 != range.size()) || (last && *last < *first))
        return std::nullopt;
    return Span{*first, std::min(last.value_or(INT64_MAX), size - 1)};
}

}  // namespace

RangePlan planRange(const RangeRequest& request, const FileFacts& file) {
    RangePlan whole{200, 0, file.size, std::nullopt};
    if (!request.range) return whole;
    if (request.ifRange && trimmed(*request.ifRange) != file.entityTag) return whole;
    const auto span = readRange(*request.range, file.size);
    if (!span) return whole;
    const std::string size = std::to_string(file.size);
    if (span->first >= file.size || span->last < span->first) return {416, 0, 0, "bytes */" + size};
    return {206, span->first, span->last - span->first + 1,
            "bytes " + std::to_string(span->first) + "-" + std::to_string(span->last) + "/" + size};
}

}  // namespace depot
