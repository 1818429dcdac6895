#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>
#include <string>

#include "common/result.h"
#include "drivers/package.h"

namespace overseer {

/// How closely a copy is looked at: a start, with thousands of files, reads names, sizes and
/// manifests only.
enum class Scrutiny { kSizes, kContent };

/// The first respect in which a folder is not a whole unpacked copy of a package, nothing when it
/// is one: every member there with its kind and size, with kContent its checksum too, the manifest
/// byte for byte, and no link but the package's own. Further files do not matter.
/// An error only where the machine kept it from being looked at.
/// @param hostFile  a member of this name in the folder itself is the host's, and not compared
Result<std::optional<std::string>> differenceFrom(const Package& package,
                                                  const std::string& manifestText,
                                                  const boost::filesystem::path& folder,
                                                  const std::string& hostFile, Scrutiny scrutiny);

/// Unpacks a package to a hidden folder beside `folder`, then puts that in its place. Where it
/// fails, `folder` is as it was.
Result<> replaceCopy(const Package& package, const boost::filesystem::path& folder);

}  // namespace overseer
