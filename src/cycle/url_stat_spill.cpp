// The hash map into sorted files on the memory disk.
//
//  1. The records leave the map and are sorted by key.
//  2. Unless everything is to be written, the most visited (100 - exportPersent) per cent go back
//     into the map: hot hosts keep being counted in memory.
//  3. The rest is written as one URL file. The memory disk has a budget, against which the bytes of
//     the file being written count. When the next record would cross it, the file is finished and
//     all memory-disk files are merged into one disk temporary file; then a new file is begun.
//  4. The file is closed with the status of the date being read and joins the date's group.
// A memory disk that is smaller than its budget says is met in the same way: its files are moved to
// disk and the file is written again.
#include "aggregate/priority_queue.h"
#include "cycle/url_stat.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "tree/directories.h"
#include "tree/free_space.h"
#include "tree/names.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>

namespace kestrine {

namespace {

constexpr int64_t g_memoryDiskReserve = 1048576; // bytes that are always left free
constexpr int g_noSpace = 1;                     // result: the memory disk is full

void sortByKey(std::vector<KeyedRecord>& records) {
    std::sort(records.begin(), records.end(),
              [](const KeyedRecord& a, const KeyedRecord& b) { return a.key < b.key; });
}

} // namespace

int UrlStat::writeHashMap(int writeAll) {
    if (m_dayStatus == nullptr) {
        return LOG_FAIL("param invalid %d", writeAll);
    }
    if (m_map.empty()) {
        return 0;
    }
    const std::string& root = m_configuration.urlStatRoot();
    if (Util::sleepWhileNoSpace(root) != 0) {
        return LOG_FAIL("sleepWhileNoSpace fail %s", root.c_str());
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    std::vector<KeyedRecord> records;
    if (m_map.takeAll(records) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    sortByKey(records);
    const auto percent = static_cast<uint64_t>(m_configuration.exportPersent());
    const size_t keep =
        writeAll != 0 ? 0 : static_cast<size_t>((100 - percent) * records.size() / 100);
    if (keep > 0 && reserveByPercent(keep, m_map, records, records.size()) != 0) {
        LOG_ERROR("reserve by percent fail");
        m_spillFailed = true;
        return -1;
    }
    m_spillFailed = writeRecords(records) != 0;
    return m_spillFailed ? -1 : 0;
}

// The `keep` most visited records move into the map, the others to the front of `records`, which is
// cut to them and sorted by key again.
int UrlStat::reserveByPercent(size_t keep, UrlHashMap& map, std::vector<KeyedRecord>& records,
                              size_t total) {
    CPriorityQueue<UrlRecord*> queue;
    if (queue.init(static_cast<uint32_t>(keep), lessByCountAndKey) != 0) {
        return LOG_FAIL("MinHeap::init fail");
    }
    size_t written = 0;
    int pushed = 0;
    for (size_t i = 0; i < total && pushed >= 0; ++i) {
        UrlRecord* dropped = nullptr;
        pushed = queue.push(records[i].record.get(), dropped);
        if (pushed >= 0) {
            (void)records[i].record.release(); // the queue's, or `dropped`
        }
        if (pushed == 1) {
            records[written++] = {dropped->key, UrlRecordPtr(dropped)};
        }
    }
    for (; queue.size() > 0; queue.pop()) {
        map.insert(UrlRecordPtr(queue.top()));
    }
    if (pushed < 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    records.resize(written);
    sortByKey(records);
    return 0;
}

// A record is freed when the file that holds it is finished, so that a file which does not find
// room on the memory disk can be written once more: after all memory-disk files were moved to disk,
// or, when there is none to move, as a disk temporary file.
int UrlStat::writeRecords(std::vector<KeyedRecord>& records) {
    for (size_t from = 0; from < records.size() && !stopRequested();) {
        size_t to = from;
        int ret = writeSpillFile(records, from, to, SpillPlace::MemoryDisk);
        if (ret == g_noSpace && m_memFileList.hasFiles()) {
            LOG_INFO("no space on memory disk for %s, move its files to disk", m_account.c_str());
            if (moveMemoryDiskToDisk(m_memFileList) != 0) {
                return -1;
            }
            continue;
        }
        if (ret == g_noSpace) {
            LOG_INFO("no space on memory disk for %s, write to disk", m_account.c_str());
            ret = writeSpillFile(records, from, to, SpillPlace::Disk);
        }
        if (ret != 0) {
            return -1;
        }
        for (; from < to; ++from) {
            records[from].record.reset();
        }
    }
    return 0;
}

// Writes one file of the records from `from` on, to the end or until the memory disk's budget cuts
// it; `to` is the first record that is not in it. 0 also after a stop (the date will be dropped);
// g_noSpace when the memory disk is full, -1 on another failure, the file being gone then.
int UrlStat::writeSpillFile(std::vector<KeyedRecord>& records, size_t from, size_t& to,
                            SpillPlace place) {
    errno = 0;
    int ret = openSpillFile(place);
    for (to = from; ret == 0 && to < records.size(); ++to) {
        const UrlRecord& record = *records[to].record;
        if (place == SpillPlace::MemoryDisk && crossesMemoryDisk(record)) {
            if (m_spillRecords > 0) {
                break;
            }
            ret = makeRoom(record);
        }
        if (stopRequested()) {
            return 0;
        }
        ret = ret == 0 ? writeSpillRecord(record) : ret;
    }
    const bool cut = ret == 0 && to < records.size();
    ret = ret == 0 ? finishSpillFile(place) : ret;
    if (ret != 0) {
        const bool noSpace = errno == ENOSPC && place == SpillPlace::MemoryDisk;
        dropSpillFile();
        return noSpace ? g_noSpace : -1;
    }
    return cut ? makeRoom(*records[to].record) : 0;
}

int UrlStat::makeRoom(const UrlRecord& record) {
    if (checkWriteMemDiskTempToDiskTemp(record, m_memFileList) != 0) {
        return LOG_FAIL("checkWriteMemDiskTempToDiskTemp fail %s", m_account.c_str());
    }
    return 0;
}

int UrlStat::writeSpillRecord(const UrlRecord& record) {
    if (m_spillFile->writeOneRecord(record.view()) != 0) {
        return LOG_FAIL("write one record fail %s", m_spillFile->path().c_str());
    }
    ++m_spillRecords;
    return 0;
}

int UrlStat::openSpillFile(SpillPlace place) {
    std::string path;
    if ((place == SpillPlace::MemoryDisk ? createMemDiskDirAndGetFilePath(path)
                                         : createDiskTempDirAndGetFilePath(path)) != 0) {
        return LOG_FAIL("createMemDiskDirAndGetFilePath fail %s %d %d", m_account.c_str(),
                        m_dayStatus->date(), static_cast<int>(m_memFileList.lastGroupSize()));
    }
    m_spillRecords = 0;
    m_spillTrailerSize = static_cast<int64_t>(m_dayStatus->writtenSize() + sizeof(int64_t));
    m_spillFile = std::make_unique<UrlFile>();
    if (m_spillFile->open(path, OpenMode::Truncate) != 0) {
        return LOG_FAIL("open file %s fail", path.c_str());
    }
    return 0;
}

int UrlStat::finishSpillFile(SpillPlace place) {
    const std::string path = m_spillFile->path();
    if (m_spillFile->flush() != 0) {
        return LOG_FAIL("flush %s fail", path.c_str());
    }
    DayStatus status = *m_dayStatus;
    status.setTotalCount(m_spillFile->totalCount());
    if (m_spillFile->writeStatus(status) != 0) {
        return LOG_FAIL("writeStatus fail %s", path.c_str());
    }
    if (m_spillFile->close() != 0) {
        return LOG_FAIL("close %s fail", path.c_str());
    }
    m_spillFile.reset();
    if (place == SpillPlace::MemoryDisk) {
        return m_memFileList.addUrlFile(path);
    }
    m_diskTempFileList.add(path, *m_dayStatus);
    return 0;
}

// An unfinished spill file, closed and removed.
void UrlStat::dropSpillFile() {
    if (!m_spillFile) {
        return;
    }
    const std::string path = m_spillFile->path();
    m_spillFile.reset();
    if (platform().exists(path) && platform().removeFile(path) != 0) {
        LOG_INFO("remove %s fail, errno %d", path.c_str(), errno);
    }
}

// Bytes on the memory disk, at most, with one more record, which may begin a block, in the file
// being written.
int64_t UrlStat::memoryDiskBytes(const UrlRecord& record) const {
    return static_cast<int64_t>(m_memFileList.totalSize()) +
           (m_spillFile ? m_spillFile->pendingSize() : 0) + m_spillTrailerSize +
           static_cast<int64_t>(BlockHeader::g_size + record.size());
}

int64_t UrlStat::usableMemoryDisk() const {
    return m_configuration.memoryDiskSize() - g_memoryDiskReserve;
}

// The budget would be crossed and there is something to be done about it: files that can be moved,
// or a file being written that can be finished. With a budget that leaves nothing usable the file
// being written is never cut.
bool UrlStat::crossesMemoryDisk(const UrlRecord& record) const {
    return memoryDiskBytes(record) > usableMemoryDisk() &&
           (m_memFileList.hasFiles() || (m_spillRecords > 0 && usableMemoryDisk() > 0));
}

// Makes room on the memory disk for the first record of a file.
int UrlStat::checkWriteMemDiskTempToDiskTemp(const UrlRecord& record, MemFileList& memFileList) {
    const int64_t current = memoryDiskBytes(record);
    const int64_t max = usableMemoryDisk();
    LOG_INFO("prepare to write to disk cur:%" PRId64 "K %" PRId64 " max:%" PRId64 "K %" PRId64,
             current / 1024, current, max / 1024, max);
    return moveMemoryDiskToDisk(memFileList);
}

int UrlStat::moveMemoryDiskToDisk(MemFileList& memFileList) {
    if (setDayStatusAndPathForMemdiskFile(memFileList, *m_dayStatus, m_account) != 0) {
        return LOG_FAIL("setDayStatusAndPathForMemdiskFile fail");
    }
    if (memFileList.mergeFileList(&m_diskTempFileList) < 0) {
        return LOG_FAIL("mergeFileList fail");
    }
    if (!stopRequested()) {
        memFileList.openGroup(); // for the rest of the date
    }
    return 0;
}

int UrlStat::createMemDiskDirAndGetFilePath(std::string& path) {
    path = names::memoryDiskFile(m_configuration.memoryDiskPath(), names::accountOf(m_account),
                                 m_dayStatus->date(), m_memFileList.nextMemoryDiskNumber());
    if (path.size() > g_maxPath) {
        return LOG_FAIL("sprintf_n fail, errno %d", errno);
    }
    if (Util::createDir(path, Durable::No) != 0) {
        return LOG_FAIL("create dir %s fail", path.c_str());
    }
    return 0;
}

// For a spill that finds no room on the memory disk.
int UrlStat::createDiskTempDirAndGetFilePath(std::string& path) {
    path = names::diskTempFile(m_configuration.urlStatRoot(), names::accountOf(m_account),
                               m_dayStatus->date(), m_memFileList.nextDiskTempNumber());
    if (path.size() > g_maxPath) {
        return LOG_FAIL("sprintf_n fail errno %d", errno);
    }
    if (Util::createDir(path, Durable::No) != 0) {
        return LOG_FAIL("create dir %s fail", path.c_str());
    }
    return 0;
}

int UrlStat::setDayStatusAndPathForMemdiskFile(MemFileList& memFileList, const DayStatus& status,
                                               const std::string& accountPath) {
    memFileList.setLastStatus(status);
    LOG_DEBUG("add new memory disk file m_memFileList, print daystatus:");
    status.print();
    if (memFileList.lastGroupSize() == 0) {
        LOG_DEBUG("size 0, not add file");
        return 0;
    }
    const std::string output =
        names::diskTempFile(m_configuration.urlStatRoot(), names::accountOf(accountPath),
                            status.date(), memFileList.nextDiskTempNumber());
    if (output.size() > g_maxPath) {
        return LOG_FAIL("sprintf_n fail errno %d", errno);
    }
    memFileList.setLastOutput(output);
    return 0;
}

} // namespace kestrine
