#include "depot/demo_picture.h"

#include <zlib.h>

#include <array>
#include <string_view>
#include <vector>

namespace depot {
namespace {

constexpr std::uint32_t kChannels = 3;

void appendBigEndian(std::string& bytes, std::uint32_t value) {
    for (const unsigned shift : {24U, 16U, 8U, 0U}) bytes += static_cast<char>(value >> shift);
}

void appendChunk(std::string& file, std::string_view type, std::string_view content) {
    appendBigEndian(file, static_cast<std::uint32_t>(content.size()));
    const std::string body = std::string(type) + std::string(content);
    file += body;
    appendBigEndian(file,
                    static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(body.data()),
                                                     static_cast<uInt>(body.size()))));
}

std::array<std::uint32_t, kChannels> colourOf(std::uint32_t seed) {
    const std::uint32_t mixed = seed * 2654435761U;
    return {96 + (mixed >> 8) % 160, 96 + (mixed >> 16) % 160, 96 + (mixed >> 24) % 160};
}

/// Rows of pixels, each after the byte for "no filter".
std::string pixels(std::uint32_t side, std::uint32_t seed) {
    const auto colour = colourOf(seed);
    const std::uint32_t square = side * side;
    std::string rows;
    for (std::uint32_t y = 0; y < side; ++y) {
        rows += '\0';
        for (std::uint32_t x = 0; x < side; ++x) {
            // Twice the distance from the centre, so that whole numbers do.
            const std::uint32_t across = 2 * x > side ? 2 * x - side : side - 2 * x;
            const std::uint32_t down = 2 * y > side ? 2 * y - side : side - 2 * y;
            const std::uint32_t distance = across * across + down * down;
            const std::uint32_t light = distance < square ? 100 - 80 * distance / square : 12;
            for (const std::uint32_t channel : colour)
                rows += static_cast<char>(channel * light / 100);
        }
    }
    return rows;
}

std::string deflated(const std::string& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string out(size, '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &size,
              reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()),
              Z_BEST_COMPRESSION);
    out.resize(size);
    return out;
}

}  // namespace

std::string demoPicture(std::uint32_t side, std::uint32_t seed) {
    std::string header;
    appendBigEndian(header, side);
    appendBigEndian(header, side);
    header += std::string("\x08\x02\x00\x00\x00", 5);  // 8 bits, red green blue, nothing special
    std::string file("\x89PNG\r\n\x1a\n", 8);
    appendChunk(file, "IHDR", header);
    appendChunk(file, "IDAT", deflated(pixels(side, seed)));
    appendChunk(file, "IEND", {});
    return file;
}

}  // namespace depot
