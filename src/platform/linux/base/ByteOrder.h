#pragma once
/// Numbers in byte arrays. The byte order is in the name and the machine's own order plays no part. The caller
/// answers for the 2 or 4 bytes at the pointer; alignment does not matter.

#include <cstdint>

namespace byteorder {

/// The 16-bit number at `bytes`, most significant byte first.
constexpr std::uint16_t loadBig16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>((bytes[0] << 8U) | bytes[1]);
}

/// The 32-bit number at `bytes`, most significant byte first.
constexpr std::uint32_t loadBig32(const std::uint8_t* bytes) {
    return (std::uint32_t{loadBig16(bytes)} << 16U) | loadBig16(bytes + 2);
}

/// The 32-bit number at `bytes`, least significant byte first.
constexpr std::uint32_t loadLittle32(const std::uint8_t* bytes) {
    return bytes[0] | (std::uint32_t{bytes[1]} << 8U) | (std::uint32_t{bytes[2]} << 16U) |
           (std::uint32_t{bytes[3]} << 24U);
}

/// Writes `value` to `bytes`, most significant byte first.
constexpr void storeBig16(std::uint8_t* bytes, std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value >> 8U);
    bytes[1] = static_cast<std::uint8_t>(value & 0xFFU);
}

/// Writes `value` to `bytes`, most significant byte first.
constexpr void storeBig32(std::uint8_t* bytes, std::uint32_t value) {
    storeBig16(bytes, static_cast<std::uint16_t>(value >> 16U));
    storeBig16(bytes + 2, static_cast<std::uint16_t>(value & 0xFFFFU));
}

/// Writes `value` to `bytes`, least significant byte first.
constexpr void storeLittle32(std::uint8_t* bytes, std::uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>((value >> (8U * i)) & 0xFFU);
}

}  // namespace byteorder
