#include "storage/end_position.h"

#include "frame/bytes.h"
#include "frame/log.h"
#include "frame/retry.h"
#include "storage/reading.h"
#include "storage/status_record.h"

#include <array>
#include <cerrno>

namespace kestrine {
namespace {

// Bytes from the end of the blocks to that of the file, at least: a status has its frame.
constexpr int64_t g_leastTrailer = g_endPositionSize + int64_t{g_statusFrameSize};

[[nodiscard]] int seekTo(File& file, const std::string& path, int64_t size, int64_t position) {
    if (triedAgain([&] { return file.seek(position); }) != 0) {
        return LOG_FAIL("_fseeki64 fail %s, errno %d, size %lld offset %lld", path.c_str(), errno,
                        static_cast<long long>(size), static_cast<long long>(position));
    }
    return 0;
}

} // namespace

int writeEndPosition(File& file, int64_t endPos) {
    std::array<uint8_t, g_endPositionSize> bytes{};
    storeLittle(bytes.data(), endPos);
    // Not tried again: part of it may have been written, and the whole file is given up.
    if (file.write(bytes) != g_endPositionSize) {
        return LOG_FAIL("fwrite fail, errno %d", errno);
    }
    return 0;
}

int seekEndPosition(File& file, const std::string& path, int64_t size, int64_t& endPos) {
    const int64_t offset = size - g_endPositionSize;
    // A final name never stands for a file that is still being written, so a short one is damaged.
    if (offset < 0) {
        LOG_ERROR("%s is too short for an end position, size %lld", path.c_str(),
                  static_cast<long long>(size));
        return g_damaged;
    }
    if (seekTo(file, path, size, offset) != 0) {
        return -1;
    }
    std::array<uint8_t, g_endPositionSize> bytes{};
    if (const int result = readExactly(file, offset, bytes); result != 0) {
        LOG_ERROR("fread fail %s errno %d ret %d", path.c_str(), errno, result);
        return result;
    }
    const auto found = loadLittle<int64_t>(bytes.data());
    // Tested before the seek, which would succeed beyond the end.
    if (found < 0 || found > size - g_leastTrailer) {
        LOG_ERROR("end pos out of range [0, %lld] %lld %s",
                  static_cast<long long>(size - g_leastTrailer), static_cast<long long>(found),
                  path.c_str());
        return g_damaged;
    }
    if (seekTo(file, path, size, found) != 0) {
        return -1;
    }
    endPos = found;
    return 0;
}

} // namespace kestrine
