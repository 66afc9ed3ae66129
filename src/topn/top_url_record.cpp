#include "topn/top_url_record.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "storage/verify.h"
#include "tree/directories.h"
#include "tree/names.h"
#include "tree/quarantine.h"
#include "tree/top_list_dirs.h"

#include <cassert>
#include <cerrno>
#include <new>

namespace kestrine {

namespace {

int deleteIfThere(const std::string& directory) {
    if (Util::deleteListDirectory(directory) != 0) {
        return LOG_FAIL("delete dir %s fail", directory.c_str());
    }
    return 0;
}

int renameDirectory(const std::string& from, const std::string& to) {
    if (platform().rename(from, to) != 0) {
        return LOG_FAIL("rename %s to %s fail, errno %d", from.c_str(), to.c_str(), errno);
    }
    return 0;
}

} // namespace

int TopUrlRecord::createTop(uint32_t statusType, const std::string& directory,
                            const std::string& path) {
    assert(m_types.empty()); // of one file only
    if (directory.empty() || path.empty()) {
        return LOG_FAIL("assureNotEmpty fail");
    }
    UrlFile file;
    const int ret = readFile(file, statusType, path);
    if (ret != 0 || stopRequested()) {
        // Remembered, since the file must be closed before it is moved.
        const bool broken = file.broken();
        if (file.close() != 0) {
            LOG_ERROR("close %s fail", path.c_str());
        }
        if (broken && setAside(path) != 0) {
            return -1;
        }
        return ret;
    }
    if (writeOutTop(directory) != 0) {
        return LOG_FAIL("writeOutTop fail");
    }
    return file.close();
}

int TopUrlRecord::readFile(UrlFile& file, uint32_t statusType, const std::string& path) {
    if (file.open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    if (file.readStatus(statusType) != 0) {
        return LOG_FAIL("read status from %s fail", path.c_str());
    }
    // All records are read here anyway, so this is where damage that merges have copied is found.
    VerifyingReader reader(file);
    while (!stopRequested()) {
        UrlRecordView record;
        const int ret = reader.readOneRecord(record);
        if (ret == 1) {
            return 0;
        }
        if (ret < 0) {
            return LOG_FAIL("read one record from %s fail", path.c_str());
        }
        if (insertTypeHashMap(record) != 0) {
            return LOG_FAIL("insert heap fail");
        }
    }
    return 0;
}

int TopUrlRecord::insertHeap(const UrlRecordView& record, MostVisited& queue) {
    return queue.add(record) == 0 ? 0 : LOG_FAIL("malloc fail, errno %d", errno);
}

int TopUrlRecord::insertTypeHashMap(const UrlRecordView& record) {
    MostVisited* queue = nullptr;
    try {
        queue = &m_types.try_emplace(record.type, g_listLength).first->second;
    } catch (const std::bad_alloc&) {
        return LOG_FAIL("new fail, errno %d", errno);
    }
    if (insertHeap(record, *queue) != 0) {
        return LOG_FAIL("insert heap fail");
    }
    return 0;
}

int TopUrlRecord::setAside(const std::string& path) {
    return Util::setAside(path);
}

//  1. A left-over "topn.temp.temp" is deleted, so that no stale list is promoted, and made anew.
//  2. Every list is written into it.
//  3. A left-over "topn.temp" is deleted; "topn.temp.temp" is renamed to it: the set is complete.
//  4. "topn" is deleted; "topn.temp" is renamed to it.
// A stop between two lists deletes what step 2 has written so far. Nothing is synced: lists are
// made from the file beside them, and the start-up check makes those again that are missing or
// torn.
int TopUrlRecord::writeOutTop(const std::string& directory) {
    const std::string incomplete = names::topTempTempDir(directory);
    const std::string complete = names::topTempDir(directory);
    const std::string current = names::topDir(directory);
    if (platform().exists(incomplete)) {
        LOG_ERROR("%s should not exist", incomplete.c_str());
        if (deleteIfThere(incomplete) != 0) {
            return -1;
        }
    }
    if (Util::createDir(incomplete + "/", Durable::No) != 0) {
        return LOG_FAIL("create dir %s fail", incomplete.c_str());
    }
    if (const int written = writeAllLists(incomplete); written != 0) {
        return written < 0 ? -1 : deleteIfThere(incomplete);
    }
    if (platform().exists(complete)) {
        LOG_ERROR("%s should not exist", complete.c_str());
        if (deleteIfThere(complete) != 0) {
            return -1;
        }
    }
    return renameDirectory(incomplete, complete) == 0 && deleteIfThere(current) == 0
               ? renameDirectory(complete, current)
               : -1;
}

int TopUrlRecord::writeAllLists(const std::string& directory) {
    MostVisited all(g_listLength);
    std::vector<UrlRecordView> written;
    for (auto& [type, queue] : m_types) {
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 1;
        }
        const std::string path = names::topFile(directory, type);
        if (path.size() > g_maxPath) {
            return LOG_FAIL("sprintf_n fail, errno %d", errno);
        }
        if (writeOutOneHeap(queue, path, written) != 0) {
            return LOG_FAIL("write out one heap to %s fail", path.c_str());
        }
        // What is among the first of all is among the first of its type.
        for (const UrlRecordView& record : written) {
            if (insertHeap(record, all) != 0) {
                return LOG_FAIL("insert heap fail");
            }
        }
    }
    // Last: the start-up check takes a set without it for one that is not there.
    const std::string path = names::topAllFile(directory);
    if (writeOutOneHeap(all, path, written) != 0) {
        return LOG_FAIL("write out one heap to %s fail", path.c_str());
    }
    return 0;
}

int TopUrlRecord::writeOutOneHeap(MostVisited& queue, const std::string& path,
                                  std::vector<UrlRecordView>& records) {
    if (queue.rank(records) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    const std::string work = names::tempOf(path);
    if (writeList(records, work) != 0) {
        return -1;
    }
    if (platform().exists(path)) {
        LOG_INFO("%s exist, remove", path.c_str());
        if (platform().removeFile(path) != 0) {
            return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
        }
    }
    if (platform().rename(work, path) != 0) {
        return LOG_FAIL("rename from %s to %s fail, errno %d", work.c_str(), path.c_str(), errno);
    }
    return 0;
}

int TopUrlRecord::writeList(const std::vector<UrlRecordView>& records, const std::string& path) {
    UrlFile file;
    if (file.open(path, OpenMode::Truncate) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    for (const UrlRecordView& record : records) {
        if (file.writeOneRecord(record) != 0) {
            return LOG_FAIL("write one record to %s fail", path.c_str());
        }
    }
    if (file.flush() != 0) {
        return LOG_FAIL("flush %s fail", path.c_str());
    }
    DayStatus status;
    // A status needs an entry; nobody asks a list what it holds or where it belongs.
    status.entries().push_back({"just for test", -1, 0});
    status.setTotalCount(file.totalCount());
    if (file.writeStatus(status) != 0) {
        return LOG_FAIL("write status to %s fail", path.c_str());
    }
    if (file.close() != 0) {
        return LOG_FAIL("close %s fail", path.c_str());
    }
    return 0;
}

} // namespace kestrine
