#include "control/http_message.h"

#include <fmt/format.h>
#include <charconv>
#include <nlohmann/json.hpp>

namespace overseer::control {
namespace {

bool isUnreserved(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
           (character >= '0' && character <= '9') || character == '-' || character == '.' ||
           character == '_' || character == '~';
}

std::string_view reasonPhrase(unsigned int status) {
    switch (status) {
        case 200:
            return "OK";
        case 202:
            return "Accepted";
        case 204:
            return "No Content";
        case 400:
            return "Bad Request";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 408:
            return "Request Timeout";
        case 409:
            return "Conflict";
        case 413:
            return "Payload Too Large";
        case 422:
            return "Unprocessable Entity";
        case 431:
            return "Request Header Fields Too Large";
        case 503:
            return "Service Unavailable";
        default:
            return "Internal Server Error";
    }
}

bool readQuery(std::string_view text, Request& request) {
    while (!text.empty()) {
        const std::string_view pair = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(pair.size() + 1, text.size()));
        const std::string_view name = pair.substr(0, pair.find('='));
        const std::string_view value =
            name.size() < pair.size() ? pair.substr(name.size() + 1) : std::string_view();
        const auto decodedName = percentDecoded(name);
        const auto decodedValue = percentDecoded(value);
        if (!decodedName || !decodedValue) {
            return false;
        }
        request.query[*decodedName] = *decodedValue;
    }
    return true;
}

}  // namespace

bool readTarget(std::string_view target, Request& request) {
    if (target.empty() || target.front() != '/') {
        return false;
    }
    std::string_view path = target.substr(0, target.find('?'));
    const std::string_view query =
        path.size() < target.size() ? target.substr(path.size() + 1) : std::string_view();
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view segment = path.substr(0, path.find('/'));
        path.remove_prefix(segment.size());
        const auto decoded = percentDecoded(segment);
        if (!decoded) {
            return false;
        }
        request.path.push_back(*decoded);
    }
    if (request.path.back().empty()) {
        request.path.pop_back();
    }
    return readQuery(query, request);
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned char character = static_cast<unsigned char>(text[at]);
        if (character == '%') {
            const char* first = text.data() + at + 1;
            if (text.size() - at < 3 ||
                std::from_chars(first, first + 2, character, 16).ptr != first + 2) {
                return std::nullopt;
            }
            at += 2;
        }
        if (character < 0x20 || character == 0x7f) {
            return std::nullopt;
        }
        decoded.push_back(static_cast<char>(character));
    }
    return decoded;
}

std::string percentEncoded(std::string_view text) {
    std::string encoded;
    for (const char character : text) {
        if (isUnreserved(character)) {
            encoded.push_back(character);
        } else {
            encoded += fmt::format("%{:02X}", static_cast<unsigned char>(character));
        }
    }
    return encoded;
}

Response refusal(unsigned int status, std::string_view code, std::string_view message) {
    const nlohmann::ordered_json error{{"error", {{"code", code}, {"message", message}}}};
    return {status,
            "application/json",
            error.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n",
            {}};
}

std::string toWire(const Response& response, bool close) {
    std::string text =
        fmt::format("HTTP/1.1 {} {}\r\n", response.status, reasonPhrase(response.status));
    if (!response.contentType.empty()) {
        text += fmt::format("Content-Type: {}\r\n", response.contentType);
    }
    if (response.status != 204) {
        text += fmt::format("Content-Length: {}\r\n", response.body.size());
    }
    if (!response.allow.empty()) {
        text += fmt::format("Allow: {}\r\n", response.allow);
    }
    text += response.status == 503 ? "Retry-After: 5\r\n" : "";
    text += close ? "Connection: close\r\n" : "";
    text += "Cache-Control: no-store\r\n\r\n";
    return text + response.body;
}

std::string streamHead(std::string_view contentType, bool chunked) {
    return fmt::format(
        "HTTP/1.1 200 OK\r\nContent-Type: {}\r\nCache-Control: no-store\r\n"
        "Connection: close\r\n{}\r\n",
        contentType, chunked ? "Transfer-Encoding: chunked\r\n" : "");
}

}  // namespace overseer::control
