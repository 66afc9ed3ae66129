#include "service/run_control.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/supervision.h"
#include "platform/platform.h"

#include <atomic>
#include <cstdint>

namespace kestrine {

namespace {

std::atomic<int> g_handlersRunning{0};

} // namespace

void signal_handler(int number) {
    ++g_handlersRunning;
    // First of all: what is printed may find nobody to read it.
    if (number == 2 || number == 15) {
        g_isRunning = 0;
        tellStopping();
    }
    logConsoleFirst(LogLevel::Debug, KESTRINE_HERE, "Recv signal:%d ... ", number);
    --g_handlersRunning;
}

void waitForSignalHandlers() {
    constexpr uint32_t step = 10; // ms
    // So that their lines are whole; but not for ever, since one may hang on a console.
    for (uint32_t waited = 0; g_handlersRunning > 0 && waited < 2000; waited += step) {
        platform().sleep(step);
    }
}

} // namespace kestrine
