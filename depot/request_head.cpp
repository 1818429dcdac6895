#include "depot/request_head.h"

#include <strings.h>

#include <algorithm>

namespace depot {
namespace {

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

bool sameName(std::string_view left, std::string_view right) {
    return left.size() == right.size() &&
           ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

bool parseRequestLine(std::string_view line, RequestHead& head) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == 0 || first == last) return false;
    head.method = line.substr(0, first);
    head.target = line.substr(first + 1, last - first - 1);
    head.version = line.substr(last + 1);
    const bool onePart = head.target.find_first_of(" \t") == std::string::npos;
    return onePart && head.target.starts_with('/') &&
           (head.version == "HTTP/1.1" || head.version == "HTTP/1.0");
}

bool parseField(std::string_view line, RequestHead& head) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    const std::string_view name = line.substr(0, colon);
    if (name.find_first_of(" \t") != std::string_view::npos) return false;
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    value = value.substr(0, value.find_last_not_of(" \t") + 1);
    head.fields.emplace_back(name, value);
    return true;
}

}  // namespace

const std::string* RequestHead::field(std::string_view name) const {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const auto& each) { return sameName(each.first, name); });
    return found == fields.end() ? nullptr : &found->second;
}

bool RequestHead::announcesBody() const {
    const std::string* length = field("Content-Length");
    return field("Transfer-Encoding") != nullptr || (length != nullptr && *length != "0");
}

std::optional<RequestHead> parseRequestHead(std::string_view text) {
    RequestHead head;
    if (!parseRequestLine(takeLine(text), head)) return std::nullopt;
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        if (line.empty()) break;
        if (!parseField(line, head)) return std::nullopt;
    }
    return head;
}

}  // namespace depot
