#include "cycle/spill_writer.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cinttypes>

namespace kestrine {

namespace {

constexpr int64_t g_memoryDiskReserve = 1048576; // bytes that are always left free

// Makes the directory of a temporary file.
int createDirectoryOf(const std::string& path) {
    if (path.size() > g_maxPath) {
        return LOG_FAIL("sprintf_n fail, errno %d", errno);
    }
    // Not synced: what a power failure takes from here is read from the logs again.
    if (Util::createDir(path, Durable::No) != 0) {
        return LOG_FAIL("create dir %s fail", path.c_str());
    }
    return 0;
}

} // namespace

// The list and the records that it names, which lie in no order: those next in turn are loaded
// ahead.
class SpillWriter::Records {
public:
    Records(const UrlHashMap& map, std::span<const KeyedRecord> list) : m_map(map), m_list(list) {}

    [[nodiscard]] size_t size() const { return m_list.size(); }
    [[nodiscard]] UrlRecordView operator[](size_t i) const {
        if (i + g_ahead < m_list.size()) {
            m_map.prefetchAt(m_list[i + g_ahead].place);
        }
        return m_map.recordAt(m_list[i].place);
    }

private:
    static constexpr size_t g_ahead = 8;

    const UrlHashMap& m_map;
    std::span<const KeyedRecord> m_list;
};

void SpillWriter::openDate(const std::string& account, const DayStatus& status) {
    m_account = account;
    m_status = &status;
    m_memFileList.openGroup();
}

void SpillWriter::dropDate() {
    m_memFileList.dropLastGroup();
    // What an earlier move of the memory disk has merged for this date, too.
    m_diskTempFileList.dropDate(m_status->date());
}

int SpillWriter::writeRecords(const UrlHashMap& map, std::span<const KeyedRecord> list) {
    assert(m_status != nullptr && std::ranges::is_sorted(list, {}, &KeyedRecord::key));
    const Records records(map, list);
    for (size_t from = 0; from < records.size() && !stopRequested();) {
        size_t to = from;
        Result result = writeFile(records, from, to, Place::MemoryDisk);
        if (result == Result::NoSpace && m_memFileList.hasFiles()) {
            // Then the same records once more: the file that found no room is gone.
            LOG_INFO("no space on memory disk for %s, move its files to disk", m_account.c_str());
            if (moveMemoryDiskToDisk() != 0) {
                return -1;
            }
            continue;
        }
        if (result == Result::NoSpace) {
            // Nothing of ours can be moved away: the memory disk is smaller than its budget says.
            LOG_INFO("no space on memory disk for %s, write to disk", m_account.c_str());
            result = writeFile(records, from, to, Place::Disk);
        }
        if (result != Result::Written) {
            return -1;
        }
        // Only now: until its file is complete a record may have to be written once more.
        from = to;
        if (from < records.size() && !stopRequested() &&
            checkWriteMemDiskTempToDiskTemp(records[from], 0) != 0) {
            return -1;
        }
    }
    return 0;
}

// Of a call that may have found the memory disk full, asked at once after it.
SpillWriter::Result SpillWriter::resultOf(int ret, Place place) {
    if (ret == 0) {
        return Result::Written;
    }
    return place == Place::MemoryDisk && errno == ENOSPC ? Result::NoSpace : Result::Failed;
}

// Writes one file of the records from `from` on, to the end or until the memory disk's budget cuts
// it; `to` is the first record that is not in it. After a stop there is no file.
SpillWriter::Result SpillWriter::writeFile(const Records& records, size_t from, size_t& to,
                                           Place place) {
    // ENOSPC below is to come from this file, and a failure without a system call leaves errno
    // alone.
    errno = 0;
    std::string path;
    Result result = resultOf(createPath(place, path), place);
    if (result == Result::Written) {
        // Closed with this scope: not every system removes an open file.
        UrlFile file(m_configuration.urlBlockSize());
        result = fill(file, path, records, from, to, place);
    }
    if (result == Result::Written && !stopRequested() && handOn(path, place) == 0) {
        return Result::Written;
    }
    if (platform().exists(path) && platform().removeFile(path) != 0) {
        LOG_INFO("remove %s fail, errno %d", path.c_str(), errno);
    }
    // Written without a file after a stop: the caller looks at the flag and drops the date.
    return result == Result::Written && !stopRequested() ? Result::Failed : result;
}

int SpillWriter::createPath(Place place, std::string& path) {
    if ((place == Place::MemoryDisk ? createMemDiskDirAndGetFilePath(path)
                                    : createDiskTempDirAndGetFilePath(path)) != 0) {
        return LOG_FAIL("createMemDiskDirAndGetFilePath fail %s %d %d", m_account.c_str(),
                        m_status->date(), static_cast<int>(m_memFileList.lastGroupSize()));
    }
    return 0;
}

int SpillWriter::handOn(const std::string& path, Place place) {
    if (place == Place::MemoryDisk) {
        return m_memFileList.addUrlFile(path);
    }
    m_diskTempFileList.add(path, *m_status);
    return 0;
}

SpillWriter::Result SpillWriter::fill(UrlFile& file, const std::string& path,
                                      const Records& records, size_t from, size_t& to,
                                      Place place) {
    if (const int ret = file.open(path, OpenMode::Truncate); ret != 0) {
        const Result result = resultOf(ret, place);
        LOG_ERROR("open file %s fail", path.c_str());
        return result;
    }
    for (to = from; to < records.size(); ++to) {
        const UrlRecordView record = records[to];
        if (place == Place::MemoryDisk && crossesMemoryDisk(record, file, to == from)) {
            // What is in the file already makes it worth finishing; its successor begins with this
            // record.
            if (to > from) {
                break;
            }
            if (checkWriteMemDiskTempToDiskTemp(record, file.pendingSize()) != 0) {
                return Result::Failed;
            }
        }
        if (stopRequested()) {
            return Result::Written;
        }
        if (const Result result = resultOf(file.writeOneRecord(record), place);
            result != Result::Written) {
            LOG_ERROR("write one record fail %s", path.c_str());
            return result;
        }
    }
    return resultOf(finish(file), place);
}

int SpillWriter::finish(UrlFile& file) {
    if (file.flush() != 0) {
        return LOG_FAIL("flush %s fail", file.path().c_str());
    }
    // As it is now: the caller's goes on as nodes are read.
    DayStatus status = *m_status;
    status.setTotalCount(file.totalCount());
    if (file.writeStatus(status) != 0) {
        return LOG_FAIL("writeStatus fail %s", file.path().c_str());
    }
    if (file.close() != 0) {
        return LOG_FAIL("close %s fail", file.path().c_str());
    }
    return 0;
}

// Bytes on the memory disk, at most, with one more record, which may begin a block, in a file that
// has `pending` bytes so far.
int64_t SpillWriter::memoryDiskBytes(const UrlRecordView& record, int64_t pending) const {
    return static_cast<int64_t>(m_memFileList.totalSize() + m_status->writtenSize() +
                                sizeof(int64_t) + BlockHeader::g_size + record.size()) +
           pending;
}

int64_t SpillWriter::usableMemoryDisk() const {
    return m_configuration.memoryDiskSize() - g_memoryDiskReserve;
}

// The budget would be crossed and there is something to be done about it: files that can be moved,
// or a file being written that can be finished. With a budget that leaves nothing usable the file
// being written is never cut.
bool SpillWriter::crossesMemoryDisk(const UrlRecordView& record, const UrlFile& file,
                                    bool empty) const {
    return memoryDiskBytes(record, file.pendingSize()) > usableMemoryDisk() &&
           (m_memFileList.hasFiles() || (!empty && usableMemoryDisk() > 0));
}

// Makes room on the memory disk for the first record of a file.
int SpillWriter::checkWriteMemDiskTempToDiskTemp(const UrlRecordView& record, int64_t pending) {
    const int64_t current = memoryDiskBytes(record, pending);
    const int64_t max = usableMemoryDisk();
    LOG_INFO("prepare to write to disk cur:%" PRId64 "K %" PRId64 " max:%" PRId64 "K %" PRId64,
             current / 1024, current, max / 1024, max);
    if (moveMemoryDiskToDisk() != 0) {
        return LOG_FAIL("checkWriteMemDiskTempToDiskTemp fail %s", m_account.c_str());
    }
    return 0;
}

int SpillWriter::moveMemoryDiskToDisk() {
    if (setDayStatusAndPathForMemdiskFile() != 0) {
        return LOG_FAIL("setDayStatusAndPathForMemdiskFile fail");
    }
    if (m_memFileList.mergeFileList(&m_diskTempFileList) < 0) {
        return LOG_FAIL("mergeFileList fail");
    }
    if (!stopRequested()) {
        m_memFileList.openGroup(); // for the rest of the date
    }
    return 0;
}

int SpillWriter::createMemDiskDirAndGetFilePath(std::string& path) {
    path = names::memoryDiskFile(m_configuration.memoryDiskPath(), names::accountOf(m_account),
                                 m_status->date(), m_memFileList.nextMemoryDiskNumber());
    return createDirectoryOf(path);
}

// For a spill that finds no room on the memory disk.
int SpillWriter::createDiskTempDirAndGetFilePath(std::string& path) {
    path = names::diskTempFile(m_configuration.urlStatRoot(), names::accountOf(m_account),
                               m_status->date(), m_memFileList.nextDiskTempNumber());
    return createDirectoryOf(path);
}

int SpillWriter::setDayStatusAndPathForMemdiskFile() {
    m_memFileList.setLastStatus(*m_status);
    LOG_DEBUG("add new memory disk file m_memFileList, print daystatus:");
    m_status->print();
    // Its status stays in the list all the same: logs without a host move positions, too.
    if (m_memFileList.lastGroupSize() == 0) {
        LOG_DEBUG("size 0, not add file");
        return 0;
    }
    const std::string output =
        names::diskTempFile(m_configuration.urlStatRoot(), names::accountOf(m_account),
                            m_status->date(), m_memFileList.nextDiskTempNumber());
    if (output.size() > g_maxPath) {
        return LOG_FAIL("sprintf_n fail errno %d", errno);
    }
    m_memFileList.setLastOutput(output);
    return 0;
}

} // namespace kestrine
