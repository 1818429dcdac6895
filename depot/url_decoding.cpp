#include "depot/url_decoding.h"

#include "depot/unicode.h"

namespace depot {
namespace {

int digitValue(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    return -1;
}

bool mayStandInUrl(char character) {
    return character > 0x20 && character < 0x7F;
}

}  // namespace

std::optional<std::string> decodeUrlPart(std::string_view escaped, bool plusIsBlank) {
    std::string text;
    text.reserve(escaped.size());
    for (std::size_t at = 0; at < escaped.size(); ++at) {
        const char character = escaped[at];
        if (!mayStandInUrl(character)) return std::nullopt;
        if (character != '%') {
            text += plusIsBlank && character == '+' ? ' ' : character;
            continue;
        }
        if (escaped.size() - at < 3) return std::nullopt;
        const int high = digitValue(escaped[at + 1]);
        const int low = digitValue(escaped[at + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        text += static_cast<char>(high * 16 + low);
        at += 2;
    }
    if (!isUtf8(text)) return std::nullopt;
    return text;
}

std::optional<Parameters> parseParameters(std::string_view query) {
    Parameters parameters;
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        query.remove_prefix(pair.size() == query.size() ? pair.size() : pair.size() + 1);
        if (pair.empty()) continue;
        const std::size_t equals = pair.find('=');
        const bool hasValue = equals != std::string_view::npos;
        auto name = decodeUrlPart(pair.substr(0, equals), true);
        auto value = decodeUrlPart(hasValue ? pair.substr(equals + 1) : std::string_view(), true);
        if (!name || !value) return std::nullopt;
        parameters.emplace_back(std::move(*name), std::move(*value));
    }
    return parameters;
}

}  // namespace depot
