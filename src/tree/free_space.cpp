#include "tree/free_space.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/supervision.h"
#include "platform/platform.h"

#include <algorithm>
#include <limits>

namespace kestrine {

namespace Util {

namespace {

constexpr uint32_t g_spaceWait = 1200000; // milliseconds between two tests of the free space
constexpr uint32_t g_waitStep = 500;      // milliseconds within which a stop is noticed

} // namespace

int getAvailableSpace(const std::string& path, uint32_t& mebibytes) {
    uint64_t bytes = 0;
    if (platform().freeSpace(path, bytes) != 0) {
        return LOG_FAIL("GetDiskFreeSpaceEx %s fail, errcode %d", path.c_str(),
                        platform().lastError());
    }
    // More than the type holds counts as the most that it holds.
    constexpr uint64_t limit = std::numeric_limits<uint32_t>::max();
    mebibytes = static_cast<uint32_t>(std::min(bytes >> 20, limit));
    return 0;
}

namespace {

// Looks again after a while, or when a stop is requested.
void waitForSpace(const std::string& path) {
    const std::string before = tellStatus("waiting for space on the volume of " + path);
    for (uint32_t slept = 0; slept < g_spaceWait && !stopRequested(); slept += g_waitStep) {
        platform().sleep(g_waitStep);
    }
    (void)tellStatus(before);
}

} // namespace

int sleepWhileNoSpace(const std::string& path) {
    while (!stopRequested()) {
        uint32_t available = 0;
        // Not waited out like a full volume: a failed call says nothing about the space.
        if (getAvailableSpace(path, available) != 0) {
            return LOG_FAIL("getAvailableSpace fail");
        }
        if (available > g_minFreeSpaceMiB) {
            return 0;
        }
        LOG_INFO("space not enough min %uM, available %uM", g_minFreeSpaceMiB, available);
        waitForSpace(path);
    }
    return 0;
}

} // namespace Util

} // namespace kestrine
