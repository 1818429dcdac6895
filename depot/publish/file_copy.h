#pragma once

#include <cstdint>
#include <string>

#include "depot/result.h"

namespace depot {

/// Copies a regular file to a new one, flushed to disk, readable by everybody, with that
/// modification time (seconds since the epoch).
/// @return the MD5 sum of what was written, 32 lower-case hexadecimal digits
Result<std::string> copyFile(const std::string& from, const std::string& to, std::int64_t time);

/// The MD5 sum of a regular file, never through a link.
Result<std::string> md5Of(const std::string& path);

/// Writes a new file, flushed to disk.
Result<void> writeNewFile(const std::string& path, const std::string& text);

/// Flushes a folder's entries to disk.
Result<void> flushFolder(const std::string& path);

}  // namespace depot
