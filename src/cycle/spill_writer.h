// Sorted records of one date into spill files.
//
//  1. A file is begun on the memory disk, which has a budget: the bytes of the file being written
//     count against it. When the next record would cross it, the file is finished and all memory-
//     disk files are merged into one disk temporary file; then a new file is begun.
//  2. A memory disk that is smaller than its budget says is met in the same way: its files are
//     moved to disk and the file is written again, or, when there is none to move, as a disk
//     temporary file.
//  3. A file is closed with the status of the date being read and joins the date's group.
// The records stay in the map until all are in files, so that one can be written once more.
#pragma once

#include "aggregate/url_hash_map.h"
#include "frame/configuration.h"
#include "merge/disk_temp_file_list.h"
#include "merge/mem_file_list.h"
#include "storage/status.h"
#include "storage/url_file.h"

#include <cstdint>
#include <span>
#include <string>

namespace kestrine {

class SpillWriter {
public:
    SpillWriter(const Configuration& configuration, MemFileList& memFileList,
                DiskTempFileList& diskTempFileList)
        : m_configuration(configuration), m_memFileList(memFileList),
          m_diskTempFileList(diskTempFileList) {}

    // Begins a date of the account with that path. The status is the caller's and may move forward
    // while the date is read: each file carries it as it then is.
    void openDate(const std::string& account, const DayStatus& status);
    // Writes listed records of a map, in ascending key order. 0, also after a stop, with records
    // left over: the date is dropped then; -1.
    [[nodiscard]] int writeRecords(const UrlHashMap& map, std::span<const KeyedRecord> records);
    // Names the disk temporary file into which the date's memory-disk files will be merged. 0 or
    // -1.
    [[nodiscard]] int setDayStatusAndPathForMemdiskFile();
    // Removes the date's files, on the memory disk and on disk.
    void dropDate();

private:
    enum class Place { MemoryDisk, Disk };
    // NoSpace: the memory disk is full. After this and after a failure the file is gone.
    enum class Result { Written, NoSpace, Failed };
    class Records;

    [[nodiscard]] static Result resultOf(int ret, Place place);
    [[nodiscard]] Result writeFile(const Records& records, size_t from, size_t& to, Place place);
    [[nodiscard]] int createPath(Place place, std::string& path);
    [[nodiscard]] Result fill(UrlFile& file, const std::string& path, const Records& records,
                              size_t from, size_t& to, Place place);
    [[nodiscard]] int handOn(const std::string& path, Place place);
    [[nodiscard]] int finish(UrlFile& file);
    [[nodiscard]] int64_t memoryDiskBytes(const UrlRecordView& record, int64_t pending) const;
    [[nodiscard]] int64_t usableMemoryDisk() const;
    [[nodiscard]] bool crossesMemoryDisk(const UrlRecordView& record, const UrlFile& file,
                                         bool empty) const;
    [[nodiscard]] int checkWriteMemDiskTempToDiskTemp(const UrlRecordView& record, int64_t pending);
    [[nodiscard]] int moveMemoryDiskToDisk();
    [[nodiscard]] int createMemDiskDirAndGetFilePath(std::string& path);
    [[nodiscard]] int createDiskTempDirAndGetFilePath(std::string& path);

    const Configuration& m_configuration;
    MemFileList& m_memFileList;
    DiskTempFileList& m_diskTempFileList;
    std::string m_account;               // path of the account
    const DayStatus* m_status = nullptr; // of the date being read
};

} // namespace kestrine
