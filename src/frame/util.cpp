#include "frame/util.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace kestrine {

namespace Util {

namespace {

constexpr uint32_t g_spaceWait = 1200000; // milliseconds between two tests of the free space
constexpr uint32_t g_waitStep = 500;      // milliseconds within which a stop is noticed

} // namespace

int assureNotEmpty(int32_t size, Buffer* buffer) {
    if (buffer == nullptr || size <= 0) {
        LOG_ERROR("param invalid");
        return -1;
    }
    if (buffer->allocate(static_cast<size_t>(size)) != 0) {
        LOG_ERROR("malloc fail, errno %d", errno);
        return -1;
    }
    return 0;
}

void replaceChar(std::string& text, char from, char to) {
    std::replace(text.begin(), text.end(), from, to);
}

int getAvailableSpace(const std::string& path, uint32_t& mebibytes) {
    uint64_t bytes = 0;
    if (platform().freeSpace(path, bytes) != 0) {
        LOG_ERROR("GetDiskFreeSpaceEx %s fail, errcode %d", path.c_str(), platform().lastError());
        return -1;
    }
    constexpr uint64_t limit = std::numeric_limits<uint32_t>::max();
    mebibytes = static_cast<uint32_t>(std::min(bytes >> 20, limit));
    return 0;
}

int sleepWhileNoSpace(const std::string& path) {
    while (!stopRequested()) {
        uint32_t available = 0;
        if (getAvailableSpace(path, available) != 0) {
            LOG_ERROR("getAvailableSpace fail");
            return -1;
        }
        if (available > g_minFreeSpaceMiB) {
            return 0;
        }
        LOG_INFO("space not enough min %uM, available %uM", g_minFreeSpaceMiB, available);
        for (uint32_t slept = 0; slept < g_spaceWait && !stopRequested(); slept += g_waitStep) {
            platform().sleep(g_waitStep);
        }
    }
    return 0;
}

} // namespace Util

uint32_t elapsedTicks(uint32_t then, uint32_t now) {
    const uint32_t difference = now - then;
    return now < then ? difference - 1 : difference;
}

} // namespace kestrine
