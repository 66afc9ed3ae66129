// Differences of the 32-bit millisecond counter.
#pragma once

#include <cstdint>

namespace kestrine {

// Milliseconds between two tick counts, less 1 when the counter has wrapped in between. The lost
// millisecond is part of the schedule's definition.
[[nodiscard]] constexpr uint32_t elapsedTicks(uint32_t then, uint32_t now) {
    const uint32_t difference = now - then;
    return now < then ? difference - 1 : difference;
}

} // namespace kestrine
