#pragma once

#include <cstdint>
#include <string>

namespace depot {

/// A square picture as the bytes of a PNG file: a lit disc on a dark ground, in a colour that
/// `seed` chooses. @param side  in pixels, from 1 to 1024
std::string demoPicture(std::uint32_t side, std::uint32_t seed);

}  // namespace depot
