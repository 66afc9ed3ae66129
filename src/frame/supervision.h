// What the supervisor (systemd, the service manager of Windows; as a rule there is none) is told.
// The first failure to tell it something is logged.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace kestrine {

// The start has succeeded: whoever waits for the service may go on.
void tellReady();
// From any thread, also that of the signals.
void tellStopping();
// What the service is doing, until something else is told; a service that is stopping tells nothing
// more. Returns what was told before. By the working thread alone.
std::string tellStatus(const std::string& text);

// Whether the working thread is at work, by the signs that it leaves (frame/progress.h).
class Pulse {
public:
    // `passed`: milliseconds since the last look. False when there was no sign since then, and also
    // when one call of the system has taken an hour: nothing but a restart would end that.
    [[nodiscard]] bool beats(uint32_t passed);

private:
    uint32_t m_longCalls = 0; // as last seen
    uint32_t m_inCall = 0;    // ms in the one that goes on
};

// Tells a supervisor that waits for it that the service is at work, as long as the pulse beats,
// from a thread of its own: the working thread may look at the run flag a million times a second or
// once in a minute, and be in one call of the system for longer.
class Heartbeat {
public:
    Heartbeat() = default;
    ~Heartbeat();
    Heartbeat(const Heartbeat&) = delete;
    Heartbeat& operator=(const Heartbeat&) = delete;

    // After the signal handler was installed, so that no signal comes to the thread. Does nothing
    // when nobody waits. 0 or -1.
    [[nodiscard]] int start();

private:
    void run(uint32_t interval);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ending = false;
    std::thread m_thread;
};

} // namespace kestrine
