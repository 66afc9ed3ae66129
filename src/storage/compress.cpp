#include "storage/compress.h"

#include "frame/log.h"
#include "storage/codec.h"
#include "storage/reading.h"

#include <cerrno>
#include <zlib.h>

namespace kestrine {
namespace {

// Bytes; twice the largest block, so that one that grows under compression has room, too.
constexpr size_t g_workBufferSize = 4194304;

} // namespace

int Compress::getInstance(Compress** instance) {
    static Compress compressor;
    if (instance == nullptr) {
        return LOG_FAIL("param null");
    }
    // Without memory this time, the next block asks again.
    if (compressor.m_buffer.empty() && compressor.init() != 0) {
        return LOG_FAIL("init fail");
    }
    *instance = &compressor;
    return 0;
}

int Compress::init() {
    if (m_buffer.allocate(g_workBufferSize) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    return 0;
}

int Compress::compress(ByteView source, ByteView* data) {
    if (source.empty() || data == nullptr) {
        return LOG_FAIL("param invalid");
    }
    size_t length = 0;
    if (const int result = codec::encode(source, m_buffer.span(), length); result != Z_OK) {
        return LOG_FAIL("compress2 fail, ret %d", result);
    }
    // Of equal length is still compressed: readers take a stream that is as long as its records.
    if (source.size() < length) {
        return -1;
    }
    *data = m_buffer.span().first(length);
    return 0;
}

int Compress::unCompress(ByteView source, std::span<uint8_t> raw, size_t* length) {
    if (source.empty() || raw.empty() || length == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (const int result = codec::decode(source, raw, *length); result != Z_OK) {
        LOG_ERROR("uncompress fail, ret %d", result);
        // Want of memory says nothing about the bytes; every other result comes from them alone.
        return result == Z_MEM_ERROR ? -1 : g_damaged;
    }
    return 0;
}

} // namespace kestrine
