// The memory-disk files of a pass, grouped by the disk temporary file that they will be merged
// into.
#pragma once

#include "storage/status.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine {

class DiskTempFileList;

class MemFileList {
public:
    // Opens a group; spill files go into the last one.
    void openGroup();
    // Appends a finished spill file to the last group and counts its size.
    [[nodiscard]] int addUrlFile(const std::string& path);
    // Files in the last group.
    [[nodiscard]] size_t lastGroupSize() const;
    // Whether any group has a file.
    [[nodiscard]] bool hasFiles() const;
    // The status that the last group's output will carry, and where it goes.
    void setLastStatus(const DayStatus& status);
    void setLastOutput(const std::string& path);

    // Merges every group into its output, hands the outputs to `list` and removes the inputs. A
    // group without files hands on its status with an empty path. Leaves no group. 0; 1 when a
    // stop was requested; -1. What was not merged stays in the list.
    [[nodiscard]] int mergeFileList(DiskTempFileList* list);
    // Removes the last group and its files.
    void dropLastGroup();
    void print() const;

    // Bytes in memory-disk files.
    [[nodiscard]] uint64_t totalSize() const { return m_totalSize; }
    // Running counters that name the files; they never restart while the list lives.
    [[nodiscard]] int32_t nextMemoryDiskNumber() { return m_memoryDiskNumber++; }
    [[nodiscard]] int32_t nextDiskTempNumber() { return ++m_diskTempNumber; }

private:
    struct Group {
        std::vector<std::string> inputs;
        uint64_t size = 0;
        std::string output;
        DayStatus status;
    };

    [[nodiscard]] int mergeGroup(Group& group, DiskTempFileList& list);
    void removeInputs(Group& group);

    std::vector<Group> m_groups;
    uint64_t m_totalSize = 0;
    int32_t m_memoryDiskNumber = 0;
    int32_t m_diskTempNumber = 0;
};

} // namespace kestrine
