// libFuzzer's side of a target. Besides libFuzzer's own arguments:
//
//   TARGET --make-corpus DIRECTORY    writes the seeds into an existing directory and ends
#include "harness/target.h"

#include "frame/run_flag.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace kestrine::fuzz {

void require(bool kept, const char* promise, int line) {
    if (!kept) {
        std::fprintf(stderr, "line %d: broken promise: %s\n", line, promise);
        std::abort();
    }
}

Machine::Machine() : FakeClockPlatform(systemPlatform()) {
    seconds = 1600000000;
    local = LocalTime{2020, 9, 13, 12, 26, 40};
    ticks = 1000;
    freeBytes = uint64_t{1} << 50;
    executable = ""; // unknown, so that no log file is looked for
    onSleep = [] { require(false, "nothing waits"); };
}

Machine& machine() {
    static Machine one;
    return one;
}

} // namespace kestrine::fuzz

using namespace kestrine;

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    setPlatform(&fuzz::machine().disk);
    g_isRunning = 1;
    if (*argc == 3 && std::string_view((*argv)[1]) == "--make-corpus") {
        int number = 0;
        for (const std::string& seed : fuzz::makeSeeds()) {
            const std::string path = (*argv)[2] + ("/seed" + std::to_string(number++));
            std::ofstream stream(path, std::ios::binary);
            fuzz::require(!(stream << seed << std::flush).fail(), "seeds can be written");
        }
        std::exit(0);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::machine().disk.files.clear();
    fuzz::machine().disk.directories.clear();
    fuzz::machine().disk.times.clear();
    fuzz::runInput({data, size});
    return 0;
}
