#include "state/utc_time.h"

#include <fmt/format.h>

namespace overseer {
namespace {

constexpr UtcMilliseconds kMillisecondsPerSecond = 1000;

/// Seconds rounded down, so that times before the epoch keep their order.
std::time_t wholeSeconds(UtcMilliseconds time) {
    const UtcMilliseconds seconds = time / kMillisecondsPerSecond;
    return time % kMillisecondsPerSecond < 0 ? seconds - 1 : seconds;
}

bool brokenDown(UtcMilliseconds time, std::tm& fields) {
    const std::time_t seconds = wholeSeconds(time);
    if (gmtime_r(&seconds, &fields) == nullptr) return false;
    const int year = fields.tm_year + 1900;
    return year >= 1 && year <= 9999;
}

}  // namespace

UtcMilliseconds toUtcMilliseconds(const timespec& time) {
    return static_cast<UtcMilliseconds>(time.tv_sec) * kMillisecondsPerSecond +
           time.tv_nsec / 1'000'000;
}

std::string utcText(UtcMilliseconds time) {
    std::tm fields{};
    if (!brokenDown(time, fields)) return {};
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", fields.tm_year + 1900,
                       fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min,
                       fields.tm_sec, time - wholeSeconds(time) * kMillisecondsPerSecond);
}

std::string utcFileNamePart(UtcMilliseconds time) {
    std::tm fields{};
    if (!brokenDown(time, fields)) return "unknown-time";
    return fmt::format("{:04}{:02}{:02}-{:02}{:02}{:02}", fields.tm_year + 1900, fields.tm_mon + 1,
                       fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
}

}  // namespace overseer
