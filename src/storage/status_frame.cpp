#include "storage/status_frame.h"

#include "frame/buffer.h"
#include "frame/log.h"
#include "storage/reading.h"
#include "storage/status.h"
#include "storage/url_key.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace kestrine {

int allocateStatus(size_t bodyLength, Buffer& record) {
    if (bodyLength > g_maxStatusLength) {
        return LOG_FAIL("len out of range [0, %d] %d", static_cast<int32_t>(g_maxStatusLength),
                        static_cast<int32_t>(bodyLength));
    }
    if (record.allocate(g_statusFrameSize + bodyLength) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    std::ranges::fill(record.span(), uint8_t{0});
    return 0;
}

int writeStatusRecord(File& file, Buffer& record) {
    const ByteView body = record.span().subspan(g_statusFrameSize);
    storeLittle(record.data(), urlKey(body));
    storeLittle(record.data() + 8, static_cast<uint32_t>(body.size()));
    if (file.write(record.span()) != static_cast<int64_t>(record.size())) {
        return LOG_FAIL("fwrite fail, errno %d", errno);
    }
    return 0;
}

int readStatusRecord(File& file, int64_t length, uint64_t& checksum, Buffer& body) {
    std::array<uint8_t, g_statusFrameSize> frame{};
    const int64_t start = file.tell();
    if (start < 0) {
        return LOG_FAIL("_ftelli64 fail, errno %d", errno);
    }
    if (const int result = readExactly(file, start, frame); result != 0) {
        return result;
    }
    checksum = loadLittle<uint64_t>(frame.data());
    const auto len = loadLittle<uint32_t>(frame.data() + 8);
    const int64_t bound =
        len > g_maxStatusLength ? g_maxStatusLength : length - int64_t{g_statusFrameSize};
    if (int64_t{len} > bound) {
        LOG_ERROR("len out of range [0, %d] %d", static_cast<int32_t>(bound),
                  static_cast<int32_t>(len));
        return g_damaged;
    }
    if (body.allocate(len) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    return readExactly(file, start + int64_t{g_statusFrameSize}, body.span());
}

int storeStatusPath(uint8_t* field, std::string_view path) {
    if (path.size() >= g_statusPathSize) {
        return LOG_FAIL("path too long %d %s", static_cast<int32_t>(path.size()),
                        std::string(path).c_str());
    }
    std::copy(path.begin(), path.end(), field);
    return 0;
}

std::string loadStatusPath(const uint8_t* field) {
    return std::string(fixedText({field, g_statusPathSize - 1}));
}

} // namespace kestrine
