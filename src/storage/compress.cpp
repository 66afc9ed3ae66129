#include "storage/compress.h"

#include "frame/log.h"
#include "storage/reading.h"

#include <cerrno>
#include <zlib.h>

namespace kestrine {
namespace {

constexpr size_t g_workBufferSize = 4194304;
constexpr int g_fastestLevel = 1;

} // namespace

int Compress::getInstance(Compress** instance) {
    static Compress compressor;
    if (instance == nullptr) {
        return LOG_FAIL("param null");
    }
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

int Compress::compress(const uint8_t* source, int32_t sourceLength, ByteView* data) {
    if (source == nullptr || sourceLength <= 0 || data == nullptr) {
        return LOG_FAIL("param invalid");
    }
    auto destLength = static_cast<uLongf>(m_buffer.size());
    const int result = compress2(m_buffer.data(), &destLength, source,
                                 static_cast<uLong>(sourceLength), g_fastestLevel);
    if (result != Z_OK) {
        return LOG_FAIL("compress2 fail, ret %d", result);
    }
    if (static_cast<uLong>(sourceLength) < destLength) {
        return -1;
    }
    *data = m_buffer.span().first(destLength);
    return 0;
}

int Compress::unCompress(const uint8_t* source, int32_t sourceLength, ByteView* data) {
    if (source == nullptr || sourceLength <= 0 || data == nullptr) {
        return LOG_FAIL("param invalid");
    }
    auto destLength = static_cast<uLongf>(m_buffer.size());
    const int result =
        uncompress(m_buffer.data(), &destLength, source, static_cast<uLong>(sourceLength));
    if (result != Z_OK) {
        LOG_ERROR("uncompress fail, ret %d", result);
        return result == Z_MEM_ERROR ? -1 : g_damaged;
    }
    *data = m_buffer.span().first(destLength);
    return 0;
}

} // namespace kestrine
