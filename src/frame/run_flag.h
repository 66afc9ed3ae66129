// The process-wide run flag.
#pragma once

#include "frame/progress.h"

#include <atomic>
#include <cstdint>

namespace kestrine {

// 1 while the service runs, 0 when a stop was requested (or before start-up is complete). Set to 1
// by `main`, cleared by the signal handler, read between units of work by every long operation.
extern std::atomic<int32_t> g_isRunning;

[[nodiscard]] inline bool stopRequested() {
    noteProgress();
    return g_isRunning.load(std::memory_order_relaxed) == 0;
}

} // namespace kestrine
