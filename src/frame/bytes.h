// Little-endian fields in byte buffers. Every on-disk integer goes through these functions; callers
// check bounds before they load.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

namespace kestrine {

using ByteView = std::span<const uint8_t>;

// Both compile to one plain move on little-endian machines; GCC needs to be told to unroll first.
template <typename T>
inline T loadLittle(const uint8_t* bytes) {
    static_assert(std::is_integral_v<T>);
    using U = std::make_unsigned_t<T>;
    U value = 0;
#pragma GCC unroll 8
    for (size_t i = 0; i < sizeof(T); ++i) {
        value = static_cast<U>(value | (static_cast<U>(bytes[i]) << (8 * i)));
    }
    return static_cast<T>(value);
}

template <typename T>
inline void storeLittle(uint8_t* bytes, T value) {
    static_assert(std::is_integral_v<T>);
    const auto bits = static_cast<std::make_unsigned_t<T>>(value);
#pragma GCC unroll 8
    for (size_t i = 0; i < sizeof(T); ++i) {
        bytes[i] = static_cast<uint8_t>(bits >> (8 * i));
    }
}

// The same bytes seen as text.
inline std::string_view asText(ByteView bytes) {
    return {static_cast<const char*>(static_cast<const void*>(bytes.data())), bytes.size()};
}

inline ByteView asBytes(std::string_view text) {
    return {static_cast<const uint8_t*>(static_cast<const void*>(text.data())), text.size()};
}

// Text of a fixed-size field: up to its first zero byte, or the whole field.
inline std::string_view fixedText(ByteView field) {
    const std::string_view text = asText(field);
    return text.substr(0, text.find('\0'));
}

} // namespace kestrine
