// nv::net::http::Url: what is taken in leniently here goes out in the form of RFC 3986.
#include <strings.h>

#include <cctype>
#include <string_view>

#include <nv/http.h>

#include "errors.h"

namespace nv::net::http {

namespace {

struct Parts {
    std::string_view scheme;
    std::string_view authority;
    std::size_t end = 0;  ///< where the path begins
};

bool isDigit(char letter) {
    return std::isdigit(static_cast<unsigned char>(letter)) != 0;
}

bool isHexDigit(char letter) {
    return std::isxdigit(static_cast<unsigned char>(letter)) != 0;
}

bool isAlphanumeric(char letter) {
    const auto value = static_cast<unsigned char>(letter);
    return value < 0x80 && std::isalnum(value) != 0;
}

bool split(std::string_view text, Parts& parts) {
    const std::size_t colon = text.find("://");
    if (colon == std::string_view::npos || colon == 0) return false;
    parts.scheme = text.substr(0, colon);
    for (const char letter : parts.scheme) {
        if (!isAlphanumeric(letter) && letter != '+' && letter != '-' && letter != '.')
            return false;
    }
    parts.end = std::min(text.size(), text.find_first_of("/?#", colon + 3));
    parts.authority = text.substr(colon + 3, parts.end - colon - 3);
    return true;
}

bool isHttp(std::string_view scheme) {
    const auto equals = [&](std::string_view name) {
        return scheme.size() == name.size() &&
               ::strncasecmp(scheme.data(), name.data(), name.size()) == 0;
    };
    return equals("http") || equals("https");
}

// Empty means the scheme's own port.
bool isPort(std::string_view text) {
    int port = 0;
    for (const char letter : text) {
        if (!isDigit(letter) || port > 65535) return false;
        port = port * 10 + (letter - '0');
    }
    return text.empty() || (port > 0 && port <= 65535);
}

bool isAddress(std::string_view text) {
    for (const char letter : text) {
        if (!isHexDigit(letter) && letter != ':' && letter != '.') return false;
    }
    return text.find(':') != std::string_view::npos;
}

bool isHostName(std::string_view text) {
    for (const char letter : text) {
        if (!isAlphanumeric(letter) && letter != '-' && letter != '.' && letter != '_')
            return false;
    }
    return true;
}

boost::system::error_code checkAuthority(std::string_view authority) {
    if (authority.find('@') != std::string_view::npos) return errorCode(Error::kUrlCredentials);
    const bool bracketed = !authority.empty() && authority.front() == '[';
    const std::size_t bracket = bracketed ? authority.find(']') : 0;
    if (bracket == std::string_view::npos) return errorCode(Error::kUrlBadHost);
    const std::size_t colon = authority.find(':', bracket);
    std::string_view host = authority.substr(0, colon);
    if (host.empty()) return errorCode(Error::kUrlWithoutHost);
    if (bracketed) {
        if (host.back() != ']') return errorCode(Error::kUrlBadHost);
        host = host.substr(1, host.size() - 2);
    }
    if (bracketed ? !isAddress(host) : !isHostName(host)) return errorCode(Error::kUrlBadHost);
    if (colon != std::string_view::npos && !isPort(authority.substr(colon + 1))) {
        return errorCode(Error::kUrlBadPort);
    }
    return {};
}

bool mayStand(char letter) {
    return isAlphanumeric(letter) ||
           (letter != '\0' &&
            std::string_view("-._~!$&'()*+,;=:@/?").find(letter) != std::string_view::npos);
}

}  // namespace

Url Url::createUrl(const std::string& text, boost::system::error_code& error) {
    Url url;
    Parts parts;
    if (!split(text, parts)) {
        error = errorCode(Error::kUrlWithoutScheme);
    } else if (!isHttp(parts.scheme)) {
        error = errorCode(Error::kUrlSchemeNotSupported);
    } else {
        error = checkAuthority(parts.authority);
    }
    if (!error) url.text_ = text;
    return url;
}

// A `#` is encoded like anything else that may not stand in a request: cutting the text there, as
// a browser does, would silently ask for something else. Right behind the host it begins the path:
// encoded there, it would become a part of the host.
std::string Url::wireText() const {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    Parts parts;
    if (!split(text_, parts)) return {};
    std::string wire = text_.substr(0, parts.end);
    if (parts.end < text_.size() && text_[parts.end] == '#') wire += '/';
    for (std::size_t i = parts.end; i < text_.size(); ++i) {
        const char letter = text_[i];
        const bool escape = letter == '%' && i + 2 < text_.size() && isHexDigit(text_[i + 1]) &&
                            isHexDigit(text_[i + 2]);
        if (escape || mayStand(letter)) {
            wire += letter;
        } else {
            const auto value = static_cast<unsigned char>(letter);
            wire += {'%', kHexDigits[value >> 4], kHexDigits[value & 15]};
        }
    }
    return wire;
}

}  // namespace nv::net::http
