#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace overseer::control {

/// A request, taken out of HTTP's hands.
struct Request {
    std::string method;
    std::vector<std::string> path;             ///< segments, percent-decoded
    std::map<std::string, std::string> query;  ///< percent-decoded; a name without "=" is empty
    std::string accept;                        ///< header Accept
    std::string lastEventId;                   ///< header Last-Event-ID
    std::string body;
};

struct Response {
    unsigned int status = 200;
    std::string contentType;
    std::string body;
    std::string allow;  ///< methods that would do, with status 405
};

/// Splits a request target into path and query.
/// @return false, with `request` in any state, for what is no absolute path, has a broken percent
///         escape, or carries a control character
bool readTarget(std::string_view target, Request& request);

/// Percent-encodes everything but RFC 3986 unreserved characters: one segment of a path, or one
/// value of a query.
std::string percentEncoded(std::string_view text);
/// The way back; nothing for a broken escape or a control character.
std::optional<std::string> percentDecoded(std::string_view text);

/// A refusal as every resource gives it: `{"error":{"code":CODE,"message":MESSAGE}}`.
/// @param code  a word for programs; stays the same when the message is reworded
Response refusal(unsigned int status, std::string_view code, std::string_view message);

/// The response as it goes over the wire. @param close  says that it is the last on the connection
std::string toWire(const Response& response, bool close);

/// The head of a response whose body comes piece by piece: in chunks, or up to the end of the
/// connection for peers that know no chunks.
std::string streamHead(std::string_view contentType, bool chunked);

}  // namespace overseer::control
