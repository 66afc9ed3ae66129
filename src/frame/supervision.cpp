#include "frame/supervision.h"

#include "frame/log.h"
#include "frame/progress.h"
#include "frame/run_flag.h"
#include "platform/platform.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

namespace kestrine {

namespace {

constexpr uint32_t g_longestCall = 3600000; // ms
// Looks within the supervisor's patience: what was noted right after one is told by the next, and
// that must not be later than half of it.
constexpr uint32_t g_looks = 4;

std::string g_status; // the working thread's

void tell(Notice notice, const std::string& status) {
    static std::atomic<bool> failed{false};
    if (platform().tellSupervisor(notice, status) != 0 && !failed.exchange(true)) {
        LOG_ERROR("tell supervisor fail, errno %d", errno);
    }
}

} // namespace

void tellReady() {
    tell(Notice::Ready, "started");
}

void tellStopping() {
    tell(Notice::Stopping, "stopping");
}

std::string tellStatus(const std::string& text) {
    if (!stopRequested()) {
        tell(Notice::Status, text);
    }
    return std::exchange(g_status, text);
}

bool Pulse::beats(uint32_t passed) {
    const bool noted = g_progress.exchange(false, std::memory_order_relaxed);
    const uint32_t calls = g_longCalls.load(std::memory_order_relaxed);
    if (noted || calls != m_longCalls) {
        m_longCalls = calls;
        m_inCall = 0;
        return true;
    }
    if (calls % 2 == 0) {
        return false;
    }
    m_inCall += passed;
    return m_inCall < g_longestCall;
}

int Heartbeat::start() {
    const uint32_t patience = platform().supervisorPatience();
    if (patience == 0) {
        return 0;
    }
    try {
        m_thread = std::thread(&Heartbeat::run, this, std::max(patience / g_looks, 1U));
    } catch (const std::system_error& error) {
        return LOG_FAIL("start heartbeat fail, errno %d", error.code().value());
    }
    return 0;
}

void Heartbeat::run(uint32_t interval) {
    Pulse pulse;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_changed.wait_for(lock, std::chrono::milliseconds(interval),
                               [this] { return m_ending; })) {
        if (pulse.beats(interval)) {
            tell(Notice::Alive, {});
        }
    }
}

Heartbeat::~Heartbeat() {
    if (m_thread.joinable()) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_ending = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
}

} // namespace kestrine
