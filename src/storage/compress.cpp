#include "storage/compress.h"

#include "frame/log.h"

#include <cerrno>
#include <zlib.h>

namespace kestrine {
namespace {

constexpr uint32_t g_workBufferSize = 4194304;
constexpr int g_fastestLevel = 1;

} // namespace

int Compress::getInstance(Compress** instance) {
    static Compress compressor;
    if (instance == nullptr) {
        LOG_ERROR("param null");
        return -1;
    }
    if (compressor.m_buffer.empty() && compressor.init() != 0) {
        LOG_ERROR("init fail");
        return -1;
    }
    *instance = &compressor;
    return 0;
}

int Compress::init() {
    m_capacity = g_workBufferSize;
    if (m_buffer.allocate(m_capacity) != 0) {
        LOG_ERROR("malloc fail, errno %d", errno);
        return -1;
    }
    return 0;
}

int Compress::compress(const uint8_t* source, int32_t sourceLength, ByteView* data) {
    if (source == nullptr || sourceLength <= 0 || data == nullptr) {
        LOG_ERROR("param invalid");
        return -1;
    }
    uLongf destLength = m_capacity;
    const int result = compress2(m_buffer.data(), &destLength, source,
                                 static_cast<uLong>(sourceLength), g_fastestLevel);
    if (result != Z_OK) {
        LOG_ERROR("compress2 fail, ret %d", result);
        return -1;
    }
    if (static_cast<uLong>(sourceLength) < destLength) {
        return -1;
    }
    *data = m_buffer.span().first(destLength);
    return 0;
}

int Compress::unCompress(const uint8_t* source, int32_t sourceLength, ByteView* data) {
    if (source == nullptr || sourceLength <= 0 || data == nullptr) {
        LOG_ERROR("param invalid");
        return -1;
    }
    uLongf destLength = m_capacity;
    const int result =
        uncompress(m_buffer.data(), &destLength, source, static_cast<uLong>(sourceLength));
    if (result != Z_OK) {
        LOG_ERROR("uncompress fail, ret %d", result);
        return -1;
    }
    *data = m_buffer.span().first(destLength);
    return 0;
}

} // namespace kestrine
