#pragma once

#include <string>

namespace nv::hosting {

/// Whether the last nv::file::replace of a target of this name failed. Clears the mark. I/O thread.
bool takeReplacementFailure(const std::string& fileName);

}  // namespace nv::hosting
