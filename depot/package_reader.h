#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "depot/document.h"
#include "depot/result.h"

namespace depot {

/// The largest manifest that is read, in bytes.
inline constexpr std::size_t kManifestLimit = 16 * 1024 * 1024;

/// Whether a file of that name is a package: it ends in ".nvz" or ".nvi", and does not begin with a
/// dot, which marks a file that is still being written.
bool isPackageName(std::string_view filename);

/// Reads what the package at `path` says of itself: version, name, model, manufacturer and the MD5
/// sum of the file; the other fields keep their defaults. A ".nvz" package is a zip archive with
/// "driver.xml" at its root, anything else is the manifest itself. Blocks; any thread.
Result<Document> readPackage(const std::string& path, const std::string& filename);

/// Reads version, name, model and manufacturer from manifest text into `document`. The version is
/// the unsigned number that the text of the root's child "version" begins with (0 when it begins
/// with none); a manifest without that text is refused.
Result<void> readManifest(std::string_view text, Document& document);

}  // namespace depot
