// What every fuzz target is made of: a translation from arbitrary bytes to files, the run of the
// code under test over them, and good inputs to begin with.
#pragma once

#include "frame/bytes.h"
#include "support/memory_disk.h"

#include <string>
#include <vector>

namespace kestrine::fuzz {

// ---- defined by each target
// Runs one input. Whatever the bytes, it returns; a broken promise of the code under test ends the
// process through `require` or a sanitizer.
void runInput(ByteView input);
// Good inputs, made by the project's own writers. Where an input is taken apart by libFuzzer's
// FuzzedDataProvider, its numbers stand at the end, the first one last.
[[nodiscard]] std::vector<std::string> makeSeeds();

// Ends the process with a message when a promise is broken.
void require(bool kept, const char* promise, int line = __builtin_LINE());

// The machine that all targets run on: a disk in memory with endless space, time standing still.
struct Machine : test::FakeClockPlatform {
    Machine();
    void writeConsole(std::string_view, bool) override {} // formatted, which is tested, too
    void put(const std::string& path, ByteView bytes) {
        disk.files[path] = {bytes.begin(), bytes.end()};
    }

    test::MemoryDisk disk{*this};
};
[[nodiscard]] Machine& machine();

} // namespace kestrine::fuzz
