#include "work_places.h"

#include <algorithm>
#include <numeric>
#include <system_error>
#include <utility>

namespace kestrine::viewer {

namespace {

constexpr size_t g_mostThreads = 8; // each with buffers of some megabytes
// While a thread works on one, another waits for it, and a third is prepared.
constexpr size_t g_placesOfThread = 3;

} // namespace

WorkPlaces::WorkPlaces(Work work) : m_work(std::move(work)) {
    const size_t threads =
        std::clamp<size_t>(std::thread::hardware_concurrency(), 1, g_mostThreads);
    m_places = g_placesOfThread * threads;
    m_free.resize(m_places);
    std::iota(m_free.begin(), m_free.end(), size_t{0});
    try {
        for (size_t thread = 1; thread < threads; ++thread) {
            m_others.emplace_back(
                [this, thread](const std::stop_token& stop) { serve(stop, thread); });
        }
    } catch (const std::system_error&) {
        // Fewer do, if need be this one alone.
    }
}

size_t WorkPlaces::take() {
    Lock lock(m_mutex);
    while (!m_taken) {
        if (!m_free.empty()) {
            m_taken = m_free.back();
            m_free.pop_back();
        } else if (!m_waiting.empty()) {
            workOnce(lock, 0);
        } else {
            m_isDone.wait(lock);
        }
    }
    return *m_taken;
}

void WorkPlaces::handOver() {
    {
        const Lock lock(m_mutex);
        m_waiting.push_back(*std::exchange(m_taken, std::nullopt));
    }
    m_waits.notify_one();
}

void WorkPlaces::finish() {
    Lock lock(m_mutex);
    while (m_free.size() + (m_taken ? 1 : 0) < m_places) {
        if (!m_waiting.empty()) {
            workOnce(lock, 0);
        } else {
            m_isDone.wait(lock);
        }
    }
}

void WorkPlaces::serve(const std::stop_token& stop, size_t thread) {
    Lock lock(m_mutex);
    while (m_waits.wait(lock, stop, [this] { return !m_waiting.empty(); })) {
        workOnce(lock, thread);
    }
}

void WorkPlaces::workOnce(Lock& lock, size_t thread) {
    const size_t place = m_waiting.front();
    m_waiting.pop_front();
    lock.unlock();
    m_work(place, thread);
    lock.lock();
    m_free.push_back(place);
    m_isDone.notify_one();
}

} // namespace kestrine::viewer
