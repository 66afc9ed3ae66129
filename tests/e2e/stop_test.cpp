// Stops, kills and second starts: the statistics end up exact whatever happens when.
#include "service_world.h"

#include "worldgen/install.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

namespace kestrine::test {
namespace {

using Microseconds = std::chrono::microseconds;

constexpr const char* g_running = "command rmdir"; // the first line after the run flag is set

// How long the first pass over new log data takes.
Microseconds timeOnePass(ServiceWorld& world) {
    const auto begin = std::chrono::steady_clock::now();
    const auto service = world.start();
    EXPECT_TRUE(service->waitForPause()) << service->tail();
    const auto end = std::chrono::steady_clock::now();
    EXPECT_TRUE(world.stop(*service));
    return std::chrono::duration_cast<Microseconds>(end - begin);
}

class RandomStop : public testing::TestWithParam<StopRequest> {};

TEST_P(RandomStop, AtAnyMomentEndsInOrderAndLosesNothing) {
    if (!ChildProcess::canRequest(GetParam())) {
        GTEST_SKIP() << "here the request is the closing of a console window, which only its user "
                        "and the system can bring about";
    }
    const uint64_t seed = randomSeed();
    SCOPED_TRACE("KESTRINE_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    ServiceWorld world(Settings{{"maxHashMemory", "16"}});
    world.generate(tinyWorld(8000));
    const Microseconds whole = timeOnePass(world);
    for (uint64_t i = 0; i < rounds(50); ++i) {
        if (i % 4 == 0) {
            world.append(tinyWorld(4000));
        }
        const auto service = world.start();
        ASSERT_TRUE(service->waitForLine(g_running)) << service->tail();
        std::this_thread::sleep_for(whole * (random() % 1000) / 1000);
        ASSERT_TRUE(world.stop(*service, GetParam())) << "stop " << i;
        EXPECT_EQ(errorLines(*service), Lines());
    }
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
    EXPECT_TRUE(world.setAside().empty());
}

INSTANTIATE_TEST_SUITE_P(Stop, RandomStop,
                         testing::Values(StopRequest::Interrupt, StopRequest::Terminate,
                                         StopRequest::HangUp),
                         [](const auto& request) {
                             return request.param == StopRequest::Interrupt   ? "Interrupt"
                                    : request.param == StopRequest::Terminate ? "Terminate"
                                                                              : "HangUp";
                         });

// Right behind the line that says so, the handler stands.
TEST(Stop, AnEarlyRequestIsKept) {
    ServiceWorld world;
    world.generate(tinyWorld(500));
    for (int i = 0; i < 20; ++i) {
        const auto service = world.start();
        ASSERT_TRUE(service->waitForLine("m_maxHashMemory")) << service->tail();
        std::this_thread::sleep_for(Microseconds(300 * i));
        ASSERT_TRUE(world.stop(*service, StopRequest::Interrupt)) << service->tail();
    }
}

// In a wait that the first one does not end.
TEST(Stop, ASecondRequestEndsTheServiceAtOnce) {
    ServiceWorld world;
    world.makeAccounts({});
    const auto service = world.start();
    ASSERT_TRUE(service->waitForLine("account size is 0")) << service->tail();
    service->request(StopRequest::Interrupt);
    ASSERT_TRUE(service->waitForLine("Recv signal:2 ... ")) << service->tail();
    service->request(StopRequest::Interrupt);
    (void)service->wait(); // whatever the system makes of it
    EXPECT_EQ(countLines(service->lines(), " exit normally"), 0) << service->tail();
}

// Also stops the first one in the middle of a long pause.
TEST(Instance, ASecondOneIsRefusedAndChangesNothing) {
    ServiceWorld world(Settings{{"sleepTime", "600"}});
    world.generate(tinyWorld(500));
    const auto service = world.start();
    ASSERT_TRUE(service->waitForPause()) << service->tail();
    world.append(tinyWorld(500));
    worldgen::writeFile(worldgen::urlstatIniPath(world.dir().path()), "[urlstat]\nsleepTime=1\n");
    const auto withoutLog = [&world] {
        auto files = world.dir().tree();
        std::erase_if(files,
                      [](const auto& file) { return file.first.starts_with("install/ml/log"); });
        return files;
    };
    const auto before = withoutLog();

    ServiceProcess second(world.program(), {}, world.programDir());
    EXPECT_EQ(second.wait(), -1);
    const Lines lines = second.lines();
    ASSERT_EQ(lines.size(), 2u) << second.tail();
    EXPECT_TRUE(lines[0].starts_with("I:") && lines[0].ends_with(" another instance is running"))
        << lines[0];
    EXPECT_TRUE(lines[1].starts_with("E:main ") && lines[1].ends_with(" create instance fail"))
        << lines[1];
    EXPECT_TRUE(withoutLog() == before);

    ASSERT_TRUE(world.stop(*service));
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
}

// New logs keep coming in between. A killed service must start again every time, and nothing that
// it left behind may count twice, be lost, or be taken for damaged.
TEST(Kill, AtRandomMomentsHundredsOfTimesLosesNothing) {
    const uint64_t seed = randomSeed();
    SCOPED_TRACE("KESTRINE_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    ServiceWorld world(Settings{{"maxHashMemory", "16"}});
    world.generate(tinyWorld(6000));
    const Microseconds whole = timeOnePass(world);
    for (uint64_t i = 0, last = rounds(300); i < last; ++i) {
        if (i % 3 == 0) {
            worldgen::WorldSettings more = tinyWorld(1500);
            more.newDays = i % 100 == 15 ? 1 : 0;
            more.newDevices = i == 24 ? 1 : 0;
            world.append(more);
        }
        const auto service = world.start();
        std::this_thread::sleep_for(whole * (random() % 1000) / 1000);
        service->kill();
        ASSERT_GE(service->wait(), 1000) << "ended by itself; " << service->tail();
        // The remains of a set of lists are the one thing that is reported as an error.
        const Lines errors = errorLines(*service);
        ASSERT_EQ(countLines(errors, "topn.temp.temp exist, delete"),
                  static_cast<int>(errors.size()))
            << "kill " << i << "; " << service->tail();
        if (i % 50 == 49 || i + 1 == last) {
            const auto undisturbed = world.start();
            ASSERT_TRUE(undisturbed->waitForPause()) << undisturbed->tail();
            ASSERT_TRUE(world.stop(*undisturbed));
            ASSERT_TRUE(world.matches()) << "after kill " << i;
        }
    }
    EXPECT_TRUE(world.setAside().empty());
}

} // namespace
} // namespace kestrine::test
