#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace overseer {

/// Milliseconds since the epoch, UTC: the form in which times are stored and handed on.
using UtcMilliseconds = std::int64_t;

UtcMilliseconds toUtcMilliseconds(const timespec& time);
/// "2026-11-23T01:02:03.456Z"; empty text for a time outside the years 1 to 9999.
std::string utcText(UtcMilliseconds time);
/// "20261123-010203", for names of files.
std::string utcFileNamePart(UtcMilliseconds time);

}  // namespace overseer
