#pragma once

#include <string>
#include <vector>

/// Splits `text` at each occurrence of `separator`. Empty text gives nothing; with `keepEmpty`
/// false, empty elements are left out. Elements are not trimmed.
std::vector<std::string> StringToVector(const std::string& text, const std::string& separator,
                                        bool keepEmpty);

namespace nv {

/// The decimal number at the start of `text` (blanks and one sign before it are allowed): 0 when
/// there is none, the limits of int when it does not fit.
int ToInt(const std::string& text);

}  // namespace nv
