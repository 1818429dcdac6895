#include "control/instant_text.h"

#include <fmt/format.h>
#include <time.h>

namespace overseer::control {
namespace {

constexpr long kMillisecondsPerSecond = 1000;

/// Three digits and what must follow them; nothing when it is not that.
std::optional<long> fraction(const char* text) {
    long value = 0;
    for (int digit = 0; digit < 3; ++digit, ++text) {
        if (*text < '0' || *text > '9') {
            return std::nullopt;
        }
        value = value * 10 + (*text - '0');
    }
    return std::string(text) == "Z" ? std::optional<long>(value) : std::nullopt;
}

}  // namespace

std::string toText(Instant instant) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(instant);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(whole);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                       (instant - whole).count());
}

std::optional<Instant> instantFromText(const std::string& text) {
    std::tm parts{};
    const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr) {
        return std::nullopt;
    }
    const std::optional<long> milliseconds =
        *rest == '.' ? fraction(rest + 1)
                     : (std::string(rest) == "Z" ? std::optional<long>(0) : std::nullopt);
    if (!milliseconds) {
        return std::nullopt;
    }
    return Instant(
        std::chrono::milliseconds(timegm(&parts) * kMillisecondsPerSecond + *milliseconds));
}

}  // namespace overseer::control
