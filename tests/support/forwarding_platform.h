// What tests put in the platform's place.
#pragma once

#include "platform/forwarding_platform.h"

#include <functional>
#include <optional>

namespace kestrine::test {

using kestrine::ForwardingFile;
using kestrine::ForwardingPlatform;
using kestrine::ScopedPlatform;

// Time, free space and the executable's path as the test sets them. Sleeping takes no time: it is
// counted, moves the clocks that are set on, and calls `onSleep`.
class FakeClockPlatform : public ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;

    std::optional<int64_t> seconds;
    std::optional<LocalTime> local;
    std::optional<uint32_t> ticks;
    std::optional<uint64_t> freeBytes;
    std::optional<std::string> executable;
    uint64_t slept = 0; // milliseconds
    std::function<void()> onSleep;

    int64_t now() override { return seconds ? *seconds : ForwardingPlatform::now(); }
    LocalTime localTime() override { return local ? *local : ForwardingPlatform::localTime(); }
    uint32_t tickCount() override { return ticks ? *ticks : ForwardingPlatform::tickCount(); }
    int freeSpace(const std::string& path, uint64_t& bytes) override {
        if (!freeBytes) {
            return ForwardingPlatform::freeSpace(path, bytes);
        }
        bytes = *freeBytes;
        return 0;
    }
    std::string executablePath() override {
        return executable ? *executable : ForwardingPlatform::executablePath();
    }
    void sleep(uint32_t milliseconds) override {
        const auto before = static_cast<int64_t>(slept / 1000);
        slept += milliseconds;
        if (seconds) {
            *seconds += static_cast<int64_t>(slept / 1000) - before;
        }
        if (ticks) {
            *ticks += milliseconds;
        }
        if (onSleep) {
            onSleep();
        }
    }
};

} // namespace kestrine::test
