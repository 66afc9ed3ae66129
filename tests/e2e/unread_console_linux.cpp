// Consoles that nobody reads, or not any more, stop nothing.
#include "service_world.h"

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

// A pipe whose other end nobody empties, and one whose reader has gone before the first line.
TEST(Console, UnreadStopsNothing) {
    for (const std::string how : {"", " > >(true)"}) {
        ServiceWorld world;
        world.generate(tinyWorld(500));
        for (int i = 0; i < 1500; ++i) { // a line each, far more than a pipe holds
            std::filesystem::create_directories(world.statRoot() + "/alice/other" +
                                                std::to_string(i));
        }
        const std::string command = "exec \"" + world.program() + "\"" + how;
        const auto service = ChildProcess::start("/bin/bash", {"-c", command}, world.programDir());
        EXPECT_TRUE(logSays(world, "0s elapsed, wait to find new data")) << how;
        service->request(StopRequest::Terminate);
        EXPECT_EQ(service->wait(), 0) << how;
        EXPECT_TRUE(logSays(world, "exit normally")) << how;
        EXPECT_TRUE(world.matches()) << how;
    }
}

} // namespace
} // namespace kestrine::test
