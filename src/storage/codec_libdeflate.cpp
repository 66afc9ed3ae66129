#include "storage/codec_library.h"

#include <libdeflate.h>
#include <memory>
#include <zlib.h>

namespace kestrine::codec {

namespace {

constexpr int g_fastestDeflate = 1;

struct Free {
    void operator()(libdeflate_decompressor* decompressor) const {
        libdeflate_free_decompressor(decompressor);
    }
    void operator()(libdeflate_compressor* compressor) const {
        libdeflate_free_compressor(compressor);
    }
};

} // namespace

int Libdeflate::decode(ByteView stored, std::span<uint8_t> raw, size_t& length) {
    // Kept while the thread lives; readers may decode in several.
    thread_local const std::unique_ptr<libdeflate_decompressor, Free> decompressor(
        libdeflate_alloc_decompressor());
    size_t used = 0;
    if (decompressor != nullptr &&
        libdeflate_zlib_decompress_ex(decompressor.get(), stored.data(), stored.size(), raw.data(),
                                      raw.size(), &used, &length) == LIBDEFLATE_SUCCESS) {
        return Z_OK;
    }
    // Also without memory: callers tell that from damage by zlib's results.
    return Zlib::decode(stored, raw, length);
}

int Libdeflate::encode(ByteView raw, std::span<uint8_t> stored, size_t& length) {
    static const std::unique_ptr<libdeflate_compressor, Free> compressor( // one thread encodes
        libdeflate_alloc_compressor(g_fastestDeflate));
    // Not handed to zlib: the caller stores the block raw, which every reader takes.
    if (compressor == nullptr) {
        return Z_MEM_ERROR;
    }
    length = libdeflate_zlib_compress(compressor.get(), raw.data(), raw.size(), stored.data(),
                                      stored.size());
    return length == 0 ? Z_BUF_ERROR : Z_OK;
}

uint32_t Libdeflate::crc32(ByteView bytes) {
    return libdeflate_crc32(0, bytes.data(), bytes.size());
}

} // namespace kestrine::codec
