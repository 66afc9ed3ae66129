// Signs of the working thread's life, left where it passes and collected by the heartbeat.
//
// Looking at the run flag leaves one, so that whoever may be stopped is seen to be at work. They
// cost a store each, since some are left for every record.
#pragma once

#include <atomic>
#include <cstdint>

namespace kestrine {

// Set at each sign, taken back by the heartbeat.
extern std::atomic<bool> g_progress;
// Goes up by one at the begin and at the end of a long call: it is odd within one.
extern std::atomic<uint32_t> g_longCalls;

inline void noteProgress() {
    g_progress.store(true, std::memory_order_relaxed);
}

// The scope of one call of the system that may take long, a sync of a large file, say: until it
// returns nobody can leave a sign. Made by the working thread alone, never within another one.
class LongCall {
public:
    LongCall() { step(); }
    ~LongCall() { step(); }
    LongCall(const LongCall&) = delete;
    LongCall& operator=(const LongCall&) = delete;

private:
    static void step() {
        g_longCalls.store(g_longCalls.load(std::memory_order_relaxed) + 1,
                          std::memory_order_relaxed);
    }
};

} // namespace kestrine
