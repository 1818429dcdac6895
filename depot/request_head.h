#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace depot {

/// The longest request line, and the longest head in all, in bytes.
inline constexpr std::size_t kRequestLineLimit = 8192;
inline constexpr std::size_t kRequestHeadLimit = 32768;

/// A request's first line and header fields, as they were sent.
struct RequestHead {
    std::string method;
    std::string target;
    std::string version;  ///< "HTTP/1.1" or "HTTP/1.0"
    std::vector<std::pair<std::string, std::string>> fields;

    /// The first field of that name (compared without case), or null.
    const std::string* field(std::string_view name) const;
    /// Whether a body follows. None is read here, so the connection cannot be used further.
    bool announcesBody() const;
};

/// Parses a head, its empty line included or not. Nothing when it is no HTTP/1 request: a line that
/// does not have exactly three parts, a field without a name or with a blank in it, a folded line.
std::optional<RequestHead> parseRequestHead(std::string_view text);

}  // namespace depot
