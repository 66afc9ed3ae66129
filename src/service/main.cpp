// The process entry. Brings the service up in a fixed order, each step only if the one before
// succeeded, hands control to the work thread object and turns every failure into exit code -1.
#include "frame/configuration.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/supervision.h"
#include "service/run_control.h"
#include "service/start_up.h"
#include "service/work_thread.h"
#include "version.h"

#include <array>
#include <exception>
#include <optional>
#include <span>

using namespace kestrine;

// Only the standard library can throw, when memory runs out. The next start then puts the tree
// right, as after a kill.
int main(int argc, char** argv) try {
    const std::span<char* const> arguments(argv, static_cast<size_t>(argc));
    const CommandLine line = parseCommandLine(arguments);
    if (const std::optional<int> code = answerWithoutStart(line)) {
        return *code;
    }
    platform().prepareConsole();
    const auto service = [&arguments]() -> int {
        std::unique_ptr<NamedEvent> instance;
        if (onlyOneInstance(&instance) != 0) {
            return LOG_FAIL("create instance fail");
        }
        LOG_INFO("kestrine %s", g_version);
        LOG_INFO("urlstat start running ...");
        if (const char* const argument = findDebugArgument(arguments)) {
            g_debugLevel = debugLevelOf(argument);
        }
        // Set before the handler stands, so that no request is ever overwritten.
        g_isRunning = 1;
        constexpr std::array stopSignals = {15, 2};
        if (platform().installSignalHandler(stopSignals, signal_handler) != 0) {
            return LOG_FAIL("install signal handler fail, errcode %u", platform().lastError());
        }
        Heartbeat heartbeat;
        if (heartbeat.start() != 0) {
            return LOG_FAIL("start heartbeat fail");
        }
        Configuration* configuration = nullptr;
        if (Configuration::getInstance(&configuration) != 0) {
            return LOG_FAIL("Configuration::getInstance fail");
        }
        WorkThread workThread(*configuration);
        if (workThread.init() != 0) {
            return LOG_FAIL("init work thread fail");
        }
        if (workThread.run() != 0) {
            return LOG_FAIL("run work thread fail");
        }
        // The name goes last: until here a second service would find the tree in work.
        if (instance->close() != 0) {
            logConsoleFirst(LogLevel::Error, KESTRINE_HERE, "CloseHandle fail errcode %u",
                            platform().lastError());
        }
        waitForSignalHandlers();
        LOG_INFO("exit normally");
        return 0;
    };
    return line.command == CommandLine::Command::RunManaged ? runManaged(line, service) : service();
} catch (const std::exception& failure) {
    return LOG_FAIL("out of resources: %s", failure.what());
}
