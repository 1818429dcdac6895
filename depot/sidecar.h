#pragma once

#include <string>
#include <string_view>

#include "depot/document.h"
#include "depot/result.h"

namespace depot {

/// What is appended to a package's file name to name its sidecar.
inline constexpr std::string_view kSidecarSuffix = ".json";

/// Reads into `document` what a package cannot say of itself. A sidecar is one JSON object of at
/// most 64 KB; each member may be missing:
///
///   autoUpdate                boolean, true by default
///   forceAutoUpdate           boolean, false by default
///   minimumAutoUpdateVersion  integer from 0
///   minimumOSVersion          text, for example "3.2.0"
///   agent                     boolean, false by default; true puts it into the core "agents" too
///
/// Any other member is refused: a misspelt rule would silently not apply.
Result<void> readSidecar(std::string_view text, Document& document);

/// The same from the file at `path`; a file that is not there changes nothing.
Result<void> readSidecarFile(const std::string& path, Document& document);

}  // namespace depot
