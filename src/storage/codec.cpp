#include "storage/codec.h"

#include "storage/codec_library.h"

#include <type_traits>

namespace kestrine::codec {

namespace {

// Both are set by the build, to 0 or 1.
using Decoder = std::conditional_t<KESTRINE_LIBDEFLATE_DECODES, Libdeflate, Zlib>;
using Encoder = std::conditional_t<KESTRINE_LIBDEFLATE_ENCODES, Libdeflate, Zlib>;

} // namespace

int decode(ByteView stored, std::span<uint8_t> raw, size_t& length) {
    return Decoder::decode(stored, raw, length);
}

int encode(ByteView raw, std::span<uint8_t> stored, size_t& length) {
    return Encoder::encode(raw, stored, length);
}

uint32_t crc32(ByteView bytes) {
    return Decoder::crc32(bytes);
}

const char* decoder() {
    return Decoder::g_name;
}

const char* encoder() {
    return Encoder::g_name;
}

} // namespace kestrine::codec
