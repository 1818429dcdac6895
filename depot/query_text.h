#pragma once

#include <string>
#include <string_view>

#include "depot/query.h"

namespace depot {

/// The text that an unquoted or quoted value stands for: `\c` becomes c, `\uXXXX` that character
/// (two of them one character where they are a surrogate pair).
QueryResult<std::string> withoutEscapes(std::string_view text);

/// Whether `text` matches `pattern` as a whole (`*`, `?`, and `\` before a literal character).
bool matchesPattern(std::string_view pattern, std::string_view text);

}  // namespace depot
