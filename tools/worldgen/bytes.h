// Little-endian stores. Every format that the generator writes is little-endian and unaligned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace worldgen {

inline void storeLe16(char* to, std::uint16_t value) {
    to[0] = static_cast<char>(value);
    to[1] = static_cast<char>(value >> 8);
}

inline void storeLe32(char* to, std::uint32_t value) {
    storeLe16(to, static_cast<std::uint16_t>(value));
    storeLe16(to + 2, static_cast<std::uint16_t>(value >> 16));
}

inline void storeLe64(char* to, std::uint64_t value) {
    storeLe32(to, static_cast<std::uint32_t>(value));
    storeLe32(to + 4, static_cast<std::uint32_t>(value >> 32));
}

inline void appendLe32(std::string& to, std::uint32_t value) {
    char bytes[4];
    storeLe32(bytes, value);
    to.append(bytes, sizeof bytes);
}

} // namespace worldgen
