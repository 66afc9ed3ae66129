// libFuzzer's side of a target. Besides libFuzzer's own arguments:
//
//   TARGET --make-corpus DIRECTORY    writes the seeds into an existing directory and ends
#include "harness/target.h"

#include "frame/run_flag.h"
#include "harness/fuzz_platform.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace kestrine::fuzz {

namespace {

[[noreturn]] void makeCorpus(const std::string& directory) {
    int number = 0;
    for (const std::string& seed : makeSeeds()) {
        std::ofstream stream(directory + "/seed" + std::to_string(number++), std::ios::binary);
        require(!(stream << seed << std::flush).fail(), "seeds can be written");
    }
    std::exit(0);
}

} // namespace

void require(bool kept, const char* promise, int line) {
    if (!kept) {
        std::fprintf(stderr, "line %d: broken promise: %s\n", line, promise);
        std::abort();
    }
}

} // namespace kestrine::fuzz

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    using namespace kestrine;
    setPlatform(&fuzz::disk());
    g_isRunning = 1;
    // Reports are formatted, since formatting is part of what is tested, and then go nowhere,
    // without a system call.
    cookie_io_functions_t nowhere{};
    nowhere.write = [](void*, const char*, size_t size) { return static_cast<ssize_t>(size); };
    stdout = fopencookie(nullptr, "w", nowhere);
    if (*argc == 3 && std::string_view((*argv)[1]) == "--make-corpus") {
        fuzz::makeCorpus((*argv)[2]);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestrine::fuzz::disk().clear();
    kestrine::fuzz::runInput({data, size});
    return 0;
}
