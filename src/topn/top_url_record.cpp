#include "topn/top_url_record.h"

#include "frame/buffer.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "storage/verify.h"
#include "tree/quarantine.h"

#include <cerrno>
#include <new>
#include <vector>

namespace kestrine {

TopUrlRecord::~TopUrlRecord() {
    const auto drain = [this](Queue& queue) {
        while (queue.size() > 0) {
            const UrlRecordPtr record(queue.top());
            queue.pop();
            --m_copies;
        }
    };
    drain(m_all);
    for (auto& [type, queue] : m_types) {
        drain(queue);
    }
    if (m_copies != 0) {
        LOG_ERROR("unfree count %d!!!", m_copies);
    }
}

int TopUrlRecord::createTop(uint32_t statusType, const std::string& directory,
                            const std::string& path) {
    if (directory.empty() || path.empty()) {
        return LOG_FAIL("assureNotEmpty fail");
    }
    if (m_all.init(g_listLength, lessByCountAndKey) != 0) {
        return LOG_FAIL("init heap fail");
    }
    UrlFile file;
    const int ret = readFile(file, statusType, path);
    if (ret != 0 || stopRequested()) {
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
        if (insertHeap(record, m_all) != 0 || insertTypeHashMap(m_types, record) != 0) {
            return LOG_FAIL("insert heap fail");
        }
    }
    return 0;
}

// Most records of a large file do not reach the list: they are refused before they are copied.
int TopUrlRecord::insertHeap(const UrlRecordView& record, Queue& queue) {
    if (queue.full() &&
        static_cast<int64_t>(record.count) < static_cast<int64_t>(queue.top()->count)) {
        return 0;
    }
    UrlRecordPtr copy = makeUrlRecord(record);
    if (!copy) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    UrlRecord* dropped = nullptr;
    const int ret = queue.push(copy.get(), dropped);
    if (ret < 0) {
        return LOG_FAIL("insert fail");
    }
    (void)copy.release(); // the queue's, or `dropped`
    ++m_copies;
    if (ret == 1) {
        const UrlRecordPtr freed(dropped);
        --m_copies;
    }
    return 0;
}

int TopUrlRecord::insertTypeHashMap(std::map<uint32_t, Queue>& queues,
                                    const UrlRecordView& record) {
    Queue* queue = nullptr;
    try {
        queue = &queues[record.type];
    } catch (const std::bad_alloc&) {
        return LOG_FAIL("new fail, errno %d", errno);
    }
    if (queue->size() == 0 && queue->init(g_listLength, lessByCountAndKey) != 0) {
        return LOG_FAIL("init heap fail");
    }
    if (insertHeap(record, *queue) != 0) {
        return LOG_FAIL("insert heap fail");
    }
    return 0;
}

int TopUrlRecord::setAside(const std::string& path) {
    return Util::setAside(path);
}

} // namespace kestrine
