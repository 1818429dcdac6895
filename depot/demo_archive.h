#pragma once

#include <string>
#include <utility>
#include <vector>

#include "depot/result.h"

namespace depot {

/// The members of an archive in their order: path and bytes.
using ArchiveMembers = std::vector<std::pair<std::string, std::string>>;

/// Writes a zip archive, replacing one that is there. The same members give the same bytes.
Result<void> writeArchive(const std::string& path, const ArchiveMembers& members);

}  // namespace depot
