#pragma once

#include <string>

namespace nv::archive {

/// Takes one member of a zip archive into memory, at most 16 MB of it.
/// @return false with the reason in `error` (archive or member unreadable, encrypted, too large)
bool expand_zip(const std::string& archive, const std::string& member, std::string& out,
                std::string& error);

}  // namespace nv::archive
