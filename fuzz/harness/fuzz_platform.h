// The disk in memory that all targets use, with everything else standing still.
#pragma once

#include "frame/bytes.h"
#include "harness/target.h"
#include "support/memory_disk.h"

namespace kestrine::fuzz {

using Bytes = test::MemoryDisk::Bytes;

// Time does not pass, space never ends, and nothing touches the system's own disk.
class FuzzPlatform : public test::MemoryDisk {
public:
    FuzzPlatform() : MemoryDisk(systemPlatform()) {}

    void clear() {
        files.clear();
        directories.clear();
        modified = 1;
    }
    void put(const std::string& path, ByteView bytes) {
        files[path] = {bytes.begin(), bytes.end()};
    }
    // Content of an existing file.
    [[nodiscard]] const Bytes& content(const std::string& path) const { return files.at(path); }

    std::string executable; // empty: unknown, so that no log file is looked for
    int64_t modified = 1;   // of every file

    int info(const std::string& path, FileInfo& info) override {
        info.modified = modified;
        return MemoryDisk::info(path, info);
    }
    int freeSpace(const std::string&, uint64_t& bytes) override {
        bytes = uint64_t{1} << 50;
        return 0;
    }
    int64_t now() override { return 1'600'000'000; }
    LocalTime localTime() override { return {2020, 9, 13, 12, 26, 40}; }
    uint32_t tickCount() override { return 1000; }
    void sleep(uint32_t) override { require(false, "nothing waits"); }
    std::string executablePath() override { return executable; }
};

// The one that is in place from the start of the process.
inline FuzzPlatform& disk() {
    static FuzzPlatform platform;
    return platform;
}

} // namespace kestrine::fuzz
