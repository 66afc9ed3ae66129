// The disk in memory that all targets use, with everything else standing still.
#pragma once

#include "frame/bytes.h"
#include "support/memory_disk.h"

#include <string>

namespace kestrine::fuzz {

using Bytes = test::MemoryDisk::Bytes;

// Time does not pass, space never ends, and nothing touches the system's own disk.
class FuzzPlatform : public test::MemoryDisk {
public:
    FuzzPlatform() : MemoryDisk(systemPlatform()) {}

    // Removes all files and forgets the executable's path.
    void clear();
    void put(const std::string& path, ByteView bytes);
    // Content of an existing file.
    [[nodiscard]] const Bytes& content(const std::string& path) const;

    std::string executable; // empty: unknown, so that no log file is looked for
    int64_t modified = 1;   // of every file

    int info(const std::string& path, FileInfo& info) override;
    int freeSpace(const std::string& path, uint64_t& bytes) override;
    int removeTree(const std::string& command, const std::string& path) override;
    int64_t now() override { return 1'600'000'000; }
    LocalTime localTime() override { return {2020, 9, 13, 12, 26, 40}; }
    uint32_t tickCount() override { return 1000; }
    void sleep(uint32_t milliseconds) override;
    std::string executablePath() override { return executable; }
};

// The one that is in place from the start of the process.
FuzzPlatform& disk();

} // namespace kestrine::fuzz
