// The libraries behind codec.h, each with the same functions; libdeflate's are there where the
// build found it.
#pragma once

#include "frame/bytes.h"

#include <cstdint>
#include <span>

namespace kestrine::codec {

struct Zlib {
    static constexpr const char* g_name = "zlib";
    [[nodiscard]] static int decode(ByteView stored, std::span<uint8_t> raw, size_t& length);
    [[nodiscard]] static int encode(ByteView raw, std::span<uint8_t> stored, size_t& length);
    [[nodiscard]] static uint32_t crc32(ByteView bytes);
};

struct Libdeflate {
    static constexpr const char* g_name = "libdeflate";
    [[nodiscard]] static int decode(ByteView stored, std::span<uint8_t> raw, size_t& length);
    [[nodiscard]] static int encode(ByteView raw, std::span<uint8_t> stored, size_t& length);
    [[nodiscard]] static uint32_t crc32(ByteView bytes);
};

} // namespace kestrine::codec
