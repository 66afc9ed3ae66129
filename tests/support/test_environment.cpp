// Tests of parts keep no log files: with no executable path known, lines go to the console alone.
// The service counts as running.
#include "frame/run_flag.h"
#include "support/forwarding_platform.h"

#include <gtest/gtest.h>

namespace {

using namespace kestrine;

class NoLogFiles : public testing::Environment {
public:
    void SetUp() override {
        m_platform.executable = "";
        setPlatform(&m_platform);
        g_isRunning = 1;
    }
    void TearDown() override { setPlatform(nullptr); }

private:
    test::FakeClockPlatform m_platform{systemPlatform()};
};

[[maybe_unused]] const auto* const g_environment =
    testing::AddGlobalTestEnvironment(new NoLogFiles);

} // namespace
