#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace depot {

/// Undoes percent-escapes, once. Nothing when a `%` is not followed by two hexadecimal digits, when
/// a byte that may not stand in a URL does (blank, control, not ASCII), or when the result is not
/// UTF-8.
/// @param plusIsBlank  true in a query, where `+` stands for a blank
std::optional<std::string> decodeUrlPart(std::string_view escaped, bool plusIsBlank);

/// The parameters of a URL's query in their order. A name may come several times.
using Parameters = std::vector<std::pair<std::string, std::string>>;

/// Splits a query at `&` and `=` and decodes names and values; nothing when one cannot be decoded.
std::optional<Parameters> parseParameters(std::string_view query);

}  // namespace depot
