#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace overseer::control {

/// What a peer may take of the host. Tests make them small.
struct Limits {
    std::size_t connections = 64;         ///< served at a time
    std::size_t refusals = 256;           ///< further ones that are told so; beyond, just closed
    std::uint64_t body = 64u << 20;       ///< bytes of a request's body
    std::uint64_t bodies = 128u << 20;    ///< of all that are held at a time
    std::uint64_t smallBody = 64u << 10;  ///< so small a one always finds room
    std::uint32_t header = 16u << 10;     ///< bytes of its head
    std::chrono::milliseconds request{30'000};  ///< for a whole request to arrive, or the next
    std::chrono::milliseconds write{60'000};    ///< for a peer to take an answer, or a page of one
    std::chrono::milliseconds look{10};         ///< between two looks at what a request waits for
    std::chrono::milliseconds farewell{2'000};  ///< for answers under way when the server stops
};

}  // namespace overseer::control
