// The time between two merges of an account, by the clock of ticks.
#pragma once

#include <cstdint>

namespace kestrine {

class Interval {
public:
    // Whether so many seconds have passed since the last time that this was so. The first time it
    // always is.
    [[nodiscard]] bool isDue(int32_t seconds);
    // Seconds that had passed when `isDue` was last asked.
    [[nodiscard]] uint32_t passed() const { return m_passed; }

private:
    uint32_t m_last = 0; // tick of the last time, 0: never
    uint32_t m_passed = 0;
};

} // namespace kestrine
