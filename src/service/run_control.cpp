#include "service/run_control.h"

#include "frame/log.h"
#include "frame/run_flag.h"

namespace kestrine {

void signal_handler(int number) {
    // First of all: what is printed may find nobody to read it.
    if (number == 2 || number == 15) {
        g_isRunning = 0;
    }
    logConsoleFirst(LogLevel::Debug, KESTRINE_HERE, "Recv signal:%d ... ", number);
}

} // namespace kestrine
