#pragma once

#include <string>
#include <string_view>

namespace depot {

/// Whether `text` is UTF-8 in shortest form, without surrogates and not beyond U+10FFFF.
bool isUtf8(std::string_view text);

/// Whether `text` holds a character below U+0020 or U+007F.
bool hasControlCharacter(std::string_view text);

/// Appends one code point, which must not be beyond U+10FFFF, to `text` as UTF-8.
void appendUtf8(std::string& text, char32_t codePoint);

}  // namespace depot
