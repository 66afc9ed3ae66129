#include "platform/platform.h"

#include <atomic>

namespace kestrine {

namespace {

std::atomic<Platform*> g_replacement{nullptr};

} // namespace

Platform& platform() {
    Platform* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : systemPlatform();
}

Platform* setPlatform(Platform* replacement) {
    return g_replacement.exchange(replacement);
}

} // namespace kestrine
