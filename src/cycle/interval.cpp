#include "cycle/interval.h"

#include "frame/ticks.h"
#include "platform/platform.h"

namespace kestrine {

bool Interval::isDue(int32_t seconds) {
    const uint32_t now = platform().tickCount();
    const uint32_t elapsed = elapsedTicks(m_last, now);
    m_passed = elapsed / 1000;
    // A tick that happens to be 0 counts as never: a merge comes too early, which harms nothing.
    const bool due = m_last == 0 || elapsed >= static_cast<uint32_t>(seconds) * 1000U;
    m_last = due ? now : m_last;
    return due;
}

} // namespace kestrine
