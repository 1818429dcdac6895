#include "depot/query_text.h"

#include "depot/unicode.h"

namespace depot {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

int hexadecimalDigit(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    return -1;
}

/// Reads the four digits after `\u`; `at` is moved behind them.
QueryResult<char32_t> codeUnit(std::string_view text, std::size_t& at) {
    char32_t unit = 0;
    for (int count = 0; count < 4; ++count, ++at) {
        if (at == text.size())
            return tl::make_unexpected(
                QueryError{"Truncated unicode escape sequence.", kSyntaxError});
        const int digit = hexadecimalDigit(text[at]);
        if (digit < 0)
            return tl::make_unexpected(QueryError{
                "Non-hex character in Unicode escape sequence: " + std::string(1, text[at]),
                kSyntaxError});
        unit = unit * 16 + static_cast<char32_t>(digit);
    }
    return unit;
}

/// Collects text and code units; joins surrogates that follow one another.
class UnitWriter {
  public:
    void character(char plain) {
        flush();
        text_ += plain;
    }
    void unit(char32_t unit) {
        if (high_ != 0 && isLowSurrogate(unit)) {
            appendUtf8(text_, 0x10000 + ((high_ - 0xD800) << 10) + (unit - 0xDC00));
            high_ = 0;
            return;
        }
        flush();
        if (isHighSurrogate(unit)) {
            high_ = unit;
        } else {
            appendUtf8(text_, isLowSurrogate(unit) ? kReplacement : unit);
        }
    }
    std::string take() {
        flush();
        return std::move(text_);
    }

  private:
    void flush() {
        if (high_ != 0) appendUtf8(text_, kReplacement);
        high_ = 0;
    }

    std::string text_;
    char32_t high_ = 0;
};

/// Bytes of the character that begins at `at`.
std::size_t characterLength(std::string_view text, std::size_t at) {
    std::size_t length = 1;
    while (at + length < text.size() &&
           (static_cast<unsigned char>(text[at + length]) & 0xC0) == 0x80)
        ++length;
    return length;
}

}  // namespace

QueryResult<std::string> withoutEscapes(std::string_view text) {
    UnitWriter writer;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] != '\\') {
            writer.character(text[at++]);
            continue;
        }
        if (++at == text.size())
            return tl::make_unexpected(
                QueryError{"Term can not end with escape character.", kParseException});
        if (text[at] != 'u') {
            writer.character(text[at++]);
            continue;
        }
        const auto unit = codeUnit(text, ++at);
        if (!unit) return tl::make_unexpected(unit.error());
        writer.unit(*unit);
    }
    return writer.take();
}

bool matchesPattern(std::string_view pattern, std::string_view text) {
    // On a mismatch the last star takes one more byte: no recursion, and at most the product of the
    // two lengths in steps.
    std::size_t inPattern = 0;
    std::size_t inText = 0;
    std::size_t afterStar = std::string_view::npos;
    std::size_t starTaken = 0;
    while (true) {
        if (inPattern < pattern.size() && pattern[inPattern] == '*') {
            afterStar = ++inPattern;
            starTaken = inText;
            continue;
        }
        if (inText == text.size() && inPattern == pattern.size()) return true;
        if (inText < text.size() && inPattern < pattern.size()) {
            const bool escaped = pattern[inPattern] == '\\' && inPattern + 1 < pattern.size();
            if (pattern[inPattern] == '?') {
                ++inPattern;
                inText += characterLength(text, inText);
                continue;
            }
            if (pattern[inPattern + (escaped ? 1 : 0)] == text[inText]) {
                inPattern += escaped ? 2 : 1;
                ++inText;
                continue;
            }
        }
        if (afterStar == std::string_view::npos || starTaken >= text.size()) return false;
        inText = ++starTaken;
        inPattern = afterStar;
    }
}

}  // namespace depot
