#include "frame/supervision.h"

#include "frame/progress.h"
#include "frame/run_flag.h"
#include "support/forwarding_platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

namespace kestrine {
namespace {

TEST(Pulse, BeatsWithSignsAndInALongCallOfAnHour) {
    Pulse pulse;
    (void)pulse.beats(0); // what other tests have left
    EXPECT_FALSE(pulse.beats(1000));
    noteProgress();
    EXPECT_TRUE(pulse.beats(1000));
    EXPECT_FALSE(pulse.beats(1000));
    (void)stopRequested();
    EXPECT_TRUE(pulse.beats(1000));
    for (int calls = 0; calls < 2; ++calls) { // each has an hour of its own
        {
            const LongCall call;
            EXPECT_TRUE(pulse.beats(1000)) << "it was begun";
            EXPECT_TRUE(pulse.beats(3599999));
            EXPECT_FALSE(pulse.beats(1));
            EXPECT_FALSE(pulse.beats(1000));
        }
        EXPECT_TRUE(pulse.beats(1000)) << "it has ended";
        EXPECT_FALSE(pulse.beats(1000));
    }
}

// Counts what it is told.
struct Supervisor : test::ForwardingPlatform {
    uint32_t patience = 40; // ms
    std::atomic<int> alive{0};
    std::string said;
    uint32_t supervisorPatience() override { return patience; }
    int tellSupervisor(Notice notice, const std::string& status) override {
        if (notice == Notice::Alive) {
            ++alive;
        } else {
            said += std::to_string(static_cast<int>(notice)) + status + ";";
        }
        return 0;
    }
};

TEST(Heartbeat, IsHeardAsLongAsTheWorkingThreadMoves) {
    using Clock = std::chrono::steady_clock;
    Supervisor supervisor;
    const test::ScopedPlatform scope(supervisor);
    {
        Heartbeat heartbeat;
        ASSERT_EQ(heartbeat.start(), 0);
        const auto end = Clock::now() + std::chrono::seconds(60);
        while (supervisor.alive < 3 && Clock::now() < end) {
            (void)stopRequested();
        }
        EXPECT_GE(supervisor.alive, 3);
        systemPlatform().sleep(100); // what was noted last is told
        const int before = supervisor.alive;
        systemPlatform().sleep(200);
        EXPECT_EQ(supervisor.alive, before);
    }
    supervisor.patience = 0;
    supervisor.alive = 0;
    Heartbeat unheard;
    ASSERT_EQ(unheard.start(), 0);
    noteProgress();
    systemPlatform().sleep(50);
    EXPECT_EQ(supervisor.alive, 0);
}

TEST(Supervision, AStatusLastsUntilTheNextAndNotBeyondAStop) {
    Supervisor supervisor;
    const test::ScopedPlatform scope(supervisor);
    g_isRunning = 1;
    (void)tellStatus("a");
    tellReady();
    const std::string before = tellStatus("b");
    EXPECT_EQ(before, "a");
    (void)tellStatus(before);
    g_isRunning = 0;
    tellStopping();
    (void)tellStatus("c");
    EXPECT_EQ(supervisor.said, "0a;1started;0b;0a;3stopping;");
}

} // namespace
} // namespace kestrine
