// Consoles that nobody reads, or not any more, stop nothing.
#include "child_process.h"
#include "service_world.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace kestrine::test {
namespace {

// The log files say so, sooner or later.
bool logSays(const ServiceWorld& world, std::string_view part) {
    for (int tries = 0; tries < 600; ++tries) {
        for (const auto& [name, content] : world.dir().tree()) {
            if (name.starts_with("install/ml/log/") && content.find(part) != std::string::npos) {
                return true;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

class UnreadConsole : public testing::TestWithParam<const char*> {};

TEST_P(UnreadConsole, StopsNothing) {
    ServiceWorld world;
    world.generate(tinyWorld(500));
    for (int i = 0; i < 1500; ++i) { // a line each, far more than a pipe holds
        std::filesystem::create_directories(world.statRoot() + "/alice/other" + std::to_string(i));
    }
    const std::string command = "exec \"" + world.program() + "\"" + GetParam();
    const auto service = ChildProcess::start("/bin/bash", {"-c", command}, world.programDir());
    EXPECT_TRUE(logSays(world, "0s elapsed, wait to find new data"));
    service->request(StopRequest::Terminate);
    EXPECT_EQ(service->wait(), 0);
    EXPECT_TRUE(logSays(world, "exit normally"));
    EXPECT_TRUE(world.matches());
}

// A pipe whose other end nobody empties, and one whose reader has gone before the first line.
INSTANTIATE_TEST_SUITE_P(Console, UnreadConsole, testing::Values("", " > >(true)"),
                         [](const auto& how) { return *how.param == 0 ? "Full" : "Closed"; });

} // namespace
} // namespace kestrine::test
