#include "depot/unicode.h"

#include <algorithm>
#include <cstddef>

namespace depot {
namespace {

/// Length of the sequence that starts with `lead`; 0 when none does.
std::size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

/// Whether the second byte keeps the sequence out of overlong forms, surrogates and beyond.
bool secondByteFits(unsigned char lead, unsigned char second) {
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    return second >= low && second <= high;
}

}  // namespace

bool isUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at]);
        const std::size_t length = sequenceLength(lead);
        if (length == 0 || length > text.size() - at) return false;
        if (length > 1 && !secondByteFits(lead, static_cast<unsigned char>(text[at + 1])))
            return false;
        for (std::size_t next = 2; next < length; ++next) {
            if ((static_cast<unsigned char>(text[at + next]) & 0xC0) != 0x80) return false;
        }
        at += length;
    }
    return true;
}

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    });
}

void appendUtf8(std::string& text, char32_t codePoint) {
    const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        append(codePoint);
        return;
    }
    if (codePoint < 0x800) {
        append(0xC0 | (codePoint >> 6));
    } else {
        if (codePoint < 0x10000) {
            append(0xE0 | (codePoint >> 12));
        } else {
            append(0xF0 | (codePoint >> 18));
            append(0x80 | ((codePoint >> 12) & 0x3F));
        }
        append(0x80 | ((codePoint >> 6) & 0x3F));
    }
    append(0x80 | (codePoint & 0x3F));
}

}  // namespace depot
