#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/result.h"

namespace overseer {

/// One member of a package.
struct PackageMember {
    enum class Kind { kFile, kFolder, kLink };

    std::string name;  ///< relative, without a slash at its end
    Kind kind = Kind::kFile;
    std::uint64_t index = 0;
    std::uint64_t size = 0;
    std::uint32_t checksum = 0;  ///< CRC-32 of a file's content
    unsigned int mode = 0;       ///< permission bits, 0 where the archive has none
    std::string linkTarget;      ///< of a link
};

/// Whether members can be unpacked into a folder without anything landing outside it or over one
/// another: relative names without empty, "." and ".." parts, no name twice, no member below one
/// that is no folder, and links whose way leads up only at its beginning and not out of the folder.
Result<> checkMembers(const std::vector<PackageMember>& members);

}  // namespace overseer
