#include "storage/codec_library.h"

#include <algorithm>
#include <limits>
#include <zlib.h>

namespace kestrine::codec {

namespace {

constexpr int g_fastestLevel = 1;

// zlib's lengths have 32 bits on some systems; the rest of a longer buffer stays unused.
uLongf clamped(size_t size) {
    return static_cast<uLongf>(std::min<size_t>(size, std::numeric_limits<uLongf>::max()));
}

} // namespace

int Zlib::decode(ByteView stored, std::span<uint8_t> raw, size_t& length) {
    uLongf decoded = clamped(raw.size());
    const int result = ::uncompress(raw.data(), &decoded, stored.data(), clamped(stored.size()));
    length = decoded;
    return result;
}

int Zlib::encode(ByteView raw, std::span<uint8_t> stored, size_t& length) {
    uLongf encoded = clamped(stored.size());
    const int result =
        ::compress2(stored.data(), &encoded, raw.data(), clamped(raw.size()), g_fastestLevel);
    length = encoded;
    return result;
}

uint32_t Zlib::crc32(ByteView bytes) {
    return static_cast<uint32_t>(::crc32_z(0, bytes.data(), bytes.size()));
}

} // namespace kestrine::codec
