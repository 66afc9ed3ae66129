// Stops, kills and second starts: the statistics end up exact whatever happens when.
#include "service_world.h"

#include "worldgen/install.h"

#include <chrono>
#include <cstdlib>
#include <optional>
#include <random>
#include <thread>

namespace kestrine::test {
namespace {

using Microseconds = std::chrono::microseconds;

// How long the first pass over new log data takes.
Microseconds timeOnePass(ServiceWorld& world) {
    const auto begin = std::chrono::steady_clock::now();
    const auto service = world.start();
    EXPECT_TRUE(service->waitForPause()) << service->tail();
    const auto end = std::chrono::steady_clock::now();
    EXPECT_TRUE(world.stop(*service));
    return std::chrono::duration_cast<Microseconds>(end - begin);
}

// The environment may set another one.
uint64_t choice(const char* name, uint64_t standard) {
    const char* const given = std::getenv(name);
    return given != nullptr ? std::strtoull(given, nullptr, 10) : standard;
}

// Ends passes at random moments; no request stands for a kill. New logs keep coming in between. The
// service must start again every time, and nothing that it left behind may count twice, be lost, or
// be taken for damaged.
void endAtRandom(uint64_t times, std::optional<StopRequest> request) {
    const uint64_t seed = choice("KESTRINE_SEED", 1);
    SCOPED_TRACE("KESTRINE_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    ServiceWorld world(Settings{{"maxHashMemory", "16"}});
    world.generate(tinyWorld(6000));
    const Microseconds whole = timeOnePass(world);
    for (uint64_t i = 0, last = choice("KESTRINE_ROUNDS", times); i < last; ++i) {
        if (i % 3 == 0) {
            worldgen::WorldSettings more = tinyWorld(request ? 4000 : 1500);
            more.newDays = i % 100 == 15 ? 1 : 0;
            more.newDevices = i == 24 ? 1 : 0;
            world.append(more);
        }
        SCOPED_TRACE(i);
        const auto service = world.start();
        // The first line after the run flag is set.
        ASSERT_TRUE(!request || service->waitForLine("command rmdir")) << service->tail();
        std::this_thread::sleep_for(whole * (random() % 1000) / 1000);
        if (request) {
            ASSERT_TRUE(world.stop(*service, *request));
        } else {
            service->kill();
            ASSERT_GE(service->wait(), 1000) << "ended by itself; " << service->tail();
        }
        // The remains of a set of lists are the one thing that is reported as an error, after
        // kills.
        const Lines errors = errorLines(*service);
        ASSERT_EQ(request ? 0 : countLines(errors, "topn.temp.temp exist, delete"),
                  static_cast<int>(errors.size()))
            << service->tail();
        if (i % 50 == 49 || i + 1 == last) {
            (void)timeOnePass(world);
            ASSERT_TRUE(world.matches());
        }
    }
    EXPECT_TRUE(world.setAside().empty());
}

TEST(Kill, AtRandomMomentsHundredsOfTimesLosesNothing) {
    endAtRandom(300, std::nullopt);
}

class RandomStop : public testing::TestWithParam<StopRequest> {};

TEST_P(RandomStop, AtAnyMomentEndsInOrderAndLosesNothing) {
    if (!ChildProcess::canRequest(GetParam())) {
        GTEST_SKIP() << "here the request is the closing of a console window, which only its user "
                        "and the system can bring about";
    }
    endAtRandom(50, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Signal, RandomStop,
                         testing::Values(StopRequest::Interrupt, StopRequest::Terminate,
                                         StopRequest::HangUp),
                         [](const auto& request) {
                             return std::to_string(static_cast<int>(request.param));
                         });

// Right behind the line that says so, the handler stands.
TEST(Stop, AnEarlyRequestIsKept) {
    ServiceWorld world;
    world.generate(tinyWorld(500));
    for (int i = 0; i < 20; ++i) {
        const auto service = world.start();
        ASSERT_TRUE(service->waitForLine("m_maxHashMemory")) << service->tail();
        std::this_thread::sleep_for(Microseconds(300 * i));
        ASSERT_TRUE(world.stop(*service));
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
    world.configure({{"sleepTime", "1"}});
    const auto withoutLog = [&world] {
        auto files = world.dir().tree();
        std::erase_if(files,
                      [](const auto& file) { return file.first.starts_with("install/ml/log"); });
        return files;
    };
    const auto before = withoutLog();
    const auto [code, lines] = run(world.program(), {}, world.programDir());
    EXPECT_EQ(code, -1);
    EXPECT_THAT(lines,
                testing::ElementsAre(testing::MatchesRegex("I:.* another instance is running"),
                                     testing::MatchesRegex("E:main .* create instance fail")));
    EXPECT_TRUE(withoutLog() == before);
    ASSERT_TRUE(world.stop(*service));
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
}

} // namespace
} // namespace kestrine::test
