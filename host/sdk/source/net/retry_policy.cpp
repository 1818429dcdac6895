// What is tried again, and when bytes may be added to bytes that were delivered before. No state
// and no network: nv::Curl's transfers put it to use.
#include "retry_policy.h"

#include <strings.h>

#include <array>
#include <charconv>
#include <cstdio>

namespace nv::net {

namespace {

constexpr std::chrono::seconds kLongestRetryAfter{60};
constexpr std::time_t kStrongDateAge = 60;

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<std::uint64_t> parseNumber(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace

void ResponseHead::read(const std::string& line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) return;
    const std::string_view name(line.data(), colon);
    const std::string_view value = trimmed(std::string_view(line).substr(colon + 1));
    const std::array<std::pair<const char*, std::string*>, 5> texts{
        {{"ETag", &entityTag},
         {"Last-Modified", &lastModified},
         {"Date", &date},
         {"Content-Range", &contentRange},
         {"Retry-After", &retryAfter}}};
    for (const auto& [known, text] : texts) {
        if (equalsIgnoringCase(name, known)) text->assign(value);
    }
    if (equalsIgnoringCase(name, "Transfer-Encoding")) chunked_ = true;
    if (equalsIgnoringCase(name, "Content-Length")) contentLength = parseNumber(value);
    if (chunked_) contentLength.reset();
}

std::optional<ContentRange> parseContentRange(std::string_view text) {
    constexpr std::string_view kUnit = "bytes ";
    if (!equalsIgnoringCase(text.substr(0, kUnit.size()), kUnit)) return std::nullopt;
    text.remove_prefix(kUnit.size());
    const std::size_t dash = text.find('-');
    const std::size_t slash = text.find('/');
    if (dash == std::string_view::npos || slash == std::string_view::npos || slash < dash) {
        return std::nullopt;
    }
    const auto first = parseNumber(text.substr(0, dash));
    const auto last = parseNumber(text.substr(dash + 1, slash - dash - 1));
    const std::string_view length = text.substr(slash + 1);
    const auto complete = parseNumber(length);
    if (!first || !last || *last < *first || (!complete && length != "*")) return std::nullopt;
    if (complete && *last >= *complete) return std::nullopt;
    return ContentRange{*first, *last, complete};
}

std::optional<std::time_t> parseHttpDate(const std::string& text) {
    static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    std::tm time{};
    std::array<char, 4> month{};
    int end = 0;
    const int fields = std::sscanf(
        text.c_str(), "%*3[A-Za-z], %2d %3[A-Za-z] %4d %2d:%2d:%2d GMT%n", &time.tm_mday,
        month.data(), &time.tm_year, &time.tm_hour, &time.tm_min, &time.tm_sec, &end);
    const std::size_t place = kMonths.find(month.data());
    if (fields != 6 || end == 0 || place == std::string_view::npos || place % 3 != 0) {
        return std::nullopt;
    }
    time.tm_mon = static_cast<int>(place / 3);
    time.tm_year -= 1900;
    return ::timegm(&time);
}

std::optional<std::chrono::seconds> parseRetryAfter(const std::string& text, std::time_t now) {
    if (const auto number = parseNumber(text)) {
        constexpr std::uint64_t kYear = 366ull * 86400;
        return std::chrono::seconds(std::min(*number, kYear));
    }
    const auto date = parseHttpDate(text);
    if (!date) return std::nullopt;
    return std::chrono::seconds(std::max<std::time_t>(0, *date - now));
}

std::string strongValidator(const ResponseHead& head) {
    const std::string& tag = head.entityTag;
    if (!tag.empty()) {
        const bool strong = tag.size() >= 2 && tag.front() == '"' && tag.back() == '"';
        return strong ? tag : std::string();
    }
    const auto changed = parseHttpDate(head.lastModified);
    const auto answered = parseHttpDate(head.date);
    const bool strong = changed && answered && *answered - *changed >= kStrongDateAge;
    return strong ? head.lastModified : std::string();
}

PartialFile describeWhole(const ResponseHead& head) {
    return {0, strongValidator(head), head.contentLength};
}

bool continues(const PartialFile& file, const ResponseHead& head) {
    const auto range = parseContentRange(head.contentRange);
    if (head.status != 206 || !range || range->first != file.delivered) return false;
    if (file.completeLength && range->completeLength != file.completeLength) return false;
    const std::uint64_t promised = range->last - range->first + 1;
    if (head.contentLength && *head.contentLength != promised) return false;
    // An answer to a date need not repeat it; a tag must come again (RFC 9110, 15.3.7).
    const bool byTag = !file.validator.empty() && file.validator.front() == '"';
    if (byTag) return head.entityTag == file.validator;
    return head.lastModified.empty() || head.lastModified == file.validator;
}

std::optional<std::chrono::seconds> waitAfterStatus(const ResponseHead& head,
                                                    std::chrono::seconds usual, std::time_t now) {
    if (head.status != 429 && head.status != 503) return std::nullopt;
    const auto asked = parseRetryAfter(head.retryAfter, now);
    // A moment that has passed is no leave to ask again at once.
    if (!asked || *asked == std::chrono::seconds::zero()) return usual;
    if (*asked > kLongestRetryAfter) return std::nullopt;
    return asked;
}

}  // namespace nv::net
