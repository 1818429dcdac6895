#pragma once

#include <string>

#include "common/result.h"

namespace overseer::ctl {

/// A manifest's bytes as UTF-8 without a mark and without a declared encoding, so that it means the
/// same inside another text; nothing else of it changes, whether or not it is well formed.
///
/// Its own encoding is told as the controller tells it that of a file: by a byte-order mark (UTF-8,
/// UTF-16, UTF-32), by how "<" or "<?" is written in those, by a declaration of Latin-1. Anything
/// else is UTF-8, and fails where it is not.
Result<std::string> toUtf8Manifest(const std::string& bytes);

}  // namespace overseer::ctl
