#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/// What must hold for every input; the fuzzer keeps the input for which it does not.
inline void require(bool condition) {
    if (!condition) std::abort();
}

inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}
