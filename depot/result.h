#pragma once

#include <string>
#include <string_view>
#include <tl/expected.hpp>
#include <utility>

namespace depot {

/// Why something could not be done, in words for the person at the terminal.
struct Error {
    std::string message;
};

/// The value, or the reason why there is none.
template <typename Value>
using Result = tl::expected<Value, Error>;

/// A failed Result of any value type.
inline tl::unexpected<Error> failure(std::string message) {
    return tl::make_unexpected(Error{std::move(message)});
}

/// The same failure with what was being done in front: "context: message".
inline tl::unexpected<Error> failure(std::string_view context, const Error& cause) {
    return failure(std::string(context) + ": " + cause.message);
}

}  // namespace depot
