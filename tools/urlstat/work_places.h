// Places in which work waits for one of the machine's processors. The thread that hands it over
// goes on meanwhile, and works itself where no place is free.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace kestrine::viewer {

class WorkPlaces {
public:
    // Does what is prepared in a place, on any thread; calls with one `thread` follow each other.
    // It must not throw, and must not call what the modules keep for their one thread: the log,
    // UrlFile.
    using Work = std::function<void(size_t place, size_t thread)>;

    explicit WorkPlaces(Work work);
    WorkPlaces(const WorkPlaces&) = delete;
    WorkPlaces& operator=(const WorkPlaces&) = delete;

    [[nodiscard]] size_t places() const { return m_places; }
    [[nodiscard]] size_t threads() const { return m_others.size() + 1; }

    // A place for the caller to prepare, the same one until it is handed over.
    [[nodiscard]] size_t take();
    void handOver();
    // Returns when everything handed over is done.
    void finish();

private:
    using Lock = std::unique_lock<std::mutex>;

    void serve(const std::stop_token& stop, size_t thread);
    void workOnce(Lock& lock, size_t thread);

    const Work m_work;
    size_t m_places = 0;
    std::mutex m_mutex; // of all that follows but the threads
    std::condition_variable_any m_waits;
    std::condition_variable m_isDone;
    std::vector<size_t> m_free;
    std::optional<size_t> m_taken;
    std::deque<size_t> m_waiting;
    std::vector<std::jthread> m_others; // last, to end before what they use
};

} // namespace kestrine::viewer
