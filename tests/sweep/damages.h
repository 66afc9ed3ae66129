// What may happen to a file of the statistics.
#pragma once

#include "support/memory_disk.h"

#include "frame/bytes.h"
#include "tree/names.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace kestrine::test {

using Harm = std::function<void(MemoryDisk& disk, const std::string& path)>;

// A file, or a directory with all it holds.
inline void lose(MemoryDisk& disk, const std::string& path) {
    EXPECT_TRUE(!disk.exists(path) || disk.removeFile(path) == 0 || disk.removeTree("", path) == 0);
}
// A bit of the status; of the first block's data, which must be compressed.
inline void flipStatus(MemoryDisk& disk, const std::string& path) {
    MemoryDisk::Bytes& bytes = disk.files.at(path);
    bytes.at(loadLittle<uint64_t>(bytes.data() + bytes.size() - 8) + 20) ^= 1;
}
inline void flipBlock(MemoryDisk& disk, const std::string& path) {
    EXPECT_EQ(disk.files.at(path).at(32), 1) << path << " is not compressed";
    disk.files.at(path).at(60) ^= 0x10;
}
inline void truncate(MemoryDisk& disk, const std::string& path) {
    disk.files.at(path).resize(disk.files.at(path).size() * 2 / 3);
}
inline void litter(MemoryDisk& disk, const std::string& path) {
    disk.files[path] = {1, 2, 3};
}

// To a file with a backup beside it, perhaps: what of the two is no longer what it was.
struct Damage {
    const char* name;
    Harm apply;
    bool file = true;
    bool backup = false;
    bool found = true; // its bytes go to quarantine
};

inline std::vector<Damage> damages() {
    const auto both = [](const Harm& harm) {
        return [harm](MemoryDisk& disk, const std::string& path) {
            harm(disk, path);
            if (disk.exists(names::backupOf(path))) {
                harm(disk, names::backupOf(path));
            }
        };
    };
    const auto loseDirectory = [](MemoryDisk& disk, const std::string& path) {
        lose(disk, std::string(names::parentOf(path)));
    };
    const auto truncateBackup = [](MemoryDisk& disk, const std::string& path) {
        truncate(disk, names::backupOf(path));
    };
    return {{"status flipped", flipStatus},
            {"block flipped", flipBlock},
            {"truncated", truncate},
            {"lost", lose, true, false, false},
            {"status flipped, of the backup too", both(flipStatus), true, true},
            {"block flipped, of the backup too", both(flipBlock), true, true},
            {"lost with its backup", both(lose), true, true, false},
            {"directory lost", loseDirectory, true, true, false},
            {"backup truncated", truncateBackup, false, true, false}};
}

} // namespace kestrine::test
