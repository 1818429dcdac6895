#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

/// The time zone of this process, until the scope ends.
class ZoneScope {
  public:
    explicit ZoneScope(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ZoneScope() {
        unsetenv("TZ");
        tzset();
    }
    ZoneScope(const ZoneScope&) = delete;
    ZoneScope& operator=(const ZoneScope&) = delete;
};

/// Seconds since the epoch of "2026-03-29 01:00:00", UTC.
inline std::time_t utc(const std::string& text) {
    std::tm fields{};
    strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &fields);
    return timegm(&fields);
}
