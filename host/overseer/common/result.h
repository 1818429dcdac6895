#pragma once

#include <fmt/format.h>
#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace overseer {

/// Why something failed: one sentence that says what, which file or peer, and what to do.
struct Error {
    std::string message;
    /// The machine is at fault (no descriptors, memory or room, a disk that fails, a right that is
    /// missing), and nothing was learnt of the file that was to be used.
    bool ofMachine = false;
};

/// A value, or why there is none.
template <typename T = void>
using Result = tl::expected<T, Error>;

/// A failure with a formatted message.
template <typename... Arguments>
tl::unexpected<Error> failure(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
    return tl::unexpected<Error>(Error{fmt::format(text, std::forward<Arguments>(arguments)...)});
}

/// The same failure one level up: "CONTEXT: message".
inline tl::unexpected<Error> inContext(const std::string& context, const Error& cause) {
    return tl::unexpected<Error>(Error{context + ": " + cause.message, cause.ofMachine});
}

}  // namespace overseer
