#include "service/run_control.h"

#include "frame/log.h"
#include "frame/run_flag.h"

namespace kestrine {

void signal_handler(int number) {
    logConsoleFirst(LogLevel::Debug, KESTRINE_HERE, "Recv signal:%d ... ", number);
    if (number == 2 || number == 15) {
        g_isRunning = 0;
    }
}

} // namespace kestrine
