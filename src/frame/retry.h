// Calls that are tried again before they count as failed.
//
// An error is not damage: a call that fails says nothing about the bytes. What fails for a passing
// reason (too many open files, no memory, an I/O error, a file that another process holds) is tried
// again; what is stable (not there, not permitted, a name that is no file) is not.
#pragma once

#include "frame/run_flag.h"
#include "platform/platform.h"

#include <cerrno>
#include <cstdint>
#include <memory>

namespace kestrine {

constexpr int g_callTries = 3;
constexpr uint32_t g_retryPause = 100; // ms between two tries

// Whether the reason of a failure, an `errno`, may be gone at the next try.
[[nodiscard]] bool isPassing(int error);

[[nodiscard]] inline bool callFailed(int64_t result) {
    return result < 0;
}
[[nodiscard]] inline bool callFailed(const std::unique_ptr<File>& file) {
    return file == nullptr;
}

// The result of the call: that of its first success, of a failure that is stable, or of the last
// try. `errno` is that of the call. A stop request ends the tries.
template <typename Call>
auto triedAgain(const Call& call) {
    auto result = call();
    for (int tries = 1; callFailed(result) && isPassing(errno) && tries < g_callTries; ++tries) {
        const int error = errno;
        if (stopRequested()) {
            break;
        }
        platform().sleep(g_retryPause);
        errno = error;
        result = call();
    }
    return result;
}

} // namespace kestrine
