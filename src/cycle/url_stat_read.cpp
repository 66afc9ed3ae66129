// The logs of one date into the hash map.
//
//  1. Every due node of the date is read from the file after the one that its entry names to the
//     end of the newest file; its entry then takes the position reached.
//  2. A node that fails after some of its records were counted keeps its old position: those
//     records will be read again, so the whole date hands nothing on in this pass. The same holds
//     when no node moved forward, and after a stop.
//  3. What remains in the map is spilled, so that no record stays for the next date, and the date's
//     group of files is closed with its status.
#include "cycle/url_stat.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "input/node_path.h"
#include "input/user_buffer.h"
#include "storage/url_key.h"
#include "tree/names.h"

#include <cerrno>
#include <cinttypes>

namespace kestrine {

int UrlStat::createTempFile(DayStatus& status) {
    if (m_reader.init(m_buffers[0].span(), m_buffers[1].span(), m_configuration.settleTime()) !=
        0) {
        LOG_ERROR("param invalid");
    }
    m_dayStatus = &status;
    m_visits = 0;
    m_spillFailed = false;
    m_map.clear();
    m_memFileList.openGroup();
    bool moved = false;
    if (readNodes(status, moved) != 0 || !moved || stopRequested()) {
        dropDate();
        return 0;
    }
    if (writeHashMap(1) != 0) {
        LOG_ERROR("write hash map fail %s %d", m_account.c_str(), status.date());
        dropDate();
        return -1;
    }
    m_map.clear();
    if (stopRequested()) {
        dropDate();
        return 0;
    }
    if (setDayStatusAndPathForMemdiskFile(m_memFileList, status, m_account) != 0) {
        return LOG_FAIL("setDayStatusAndPathForMemdiskFile fail");
    }
    return 0;
}

// 0, or -1 when a node failed after some of its records were counted, or when a spill failed, which
// may have taken records of other nodes with it.
int UrlStat::readNodes(DayStatus& status, bool& moved) {
    for (size_t i = 0; i < status.entries().size(); ++i) {
        const uint64_t visitsBefore = m_visits;
        const int32_t fileBefore = status.entries()[i].fileNumber;
        if (dealOneDevice(status, i) != 0) {
            LOG_ERROR("dealOneDevice fail %s", status.entries()[i].path.c_str());
            if (m_visits != visitsBefore || m_spillFailed) {
                return -1;
            }
        }
        moved = moved || status.entries()[i].fileNumber != fileBefore;
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    return 0;
}

int UrlStat::dealOneDevice(DayStatus& status, size_t index) {
    NodeEntry& node = status.entries()[index];
    LOG_DEBUG("daystatus now %s %d %" PRIu64, node.path.c_str(), node.fileNumber, node.offset);
    int32_t date = 0;
    if (getAccountPathAndDate(node.path, date) != 0) {
        return LOG_FAIL("getAccountPathAndDate %s fail", node.path.c_str());
    }
    const int opened = m_reader.open(names::typeDir(node.path), node.fileNumber + 1);
    if (opened == g_loaderNoMore) {
        return m_reader.close() == 0 ? 0 : -1; // nothing readable yet: the entry stays as it was
    }
    if (opened != 0) {
        LOG_ERROR("open %s fail", node.path.c_str());
        if (m_reader.close() != 0) {
            LOG_ERROR("close %s fail", node.path.c_str());
        }
        return -1;
    }
    const int ret = dealAllDatFile(m_reader);
    if (ret == 0) {
        node.fileNumber = m_reader.currentPosition().fileNumber;
        node.offset = m_reader.currentPosition().offset;
    } else {
        LOG_ERROR("dealAllDatFile %s %d fail", node.path.c_str(), node.fileNumber);
    }
    if (m_reader.close() != 0) {
        LOG_ERROR("close %s fail", node.path.c_str());
    }
    return ret;
}

int UrlStat::dealAllDatFile(LoaderReader& reader) {
    while (true) {
        size_t used = 0;
        const int ret = reader.readHistory(m_buffers[2].span(), used);
        if (ret != g_loaderDone && ret != g_loaderNoMore) {
            return LOG_FAIL("LoaderReader fail %d", ret);
        }
        if (used > 0 && dealOneUserBuffer(m_buffers[2].span().first(used)) != 0) {
            return LOG_FAIL("dealOneUserBuffer %s fail", m_account.c_str());
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
        if (ret == g_loaderNoMore) {
            return 0;
        }
    }
}

int UrlStat::dealOneUserBuffer(ByteView stream) {
    if (stream.empty()) {
        return LOG_FAIL("param invalid");
    }
    size_t offset = 0;
    ByteView payload;
    while (nextEntry(stream, offset, payload)) {
        std::string_view host;
        uint32_t type = 0;
        const HostResult result = findHost(payload, host, type);
        if (result == HostResult::Unterminated) {
            LOG_ERROR("cannot find %s in %.*s", g_hostCloseTag.data(),
                      static_cast<int>(host.size()), host.data());
        }
        if (result != HostResult::Found) {
            continue;
        }
        if (dealOneUrlRecord(host, type) != 0) {
            return LOG_FAIL("dealOneUrlRecord from result %.*s fail", static_cast<int>(host.size()),
                            host.data());
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    return 0;
}

int UrlStat::dealOneUrlRecord(std::string_view host, uint32_t type) {
    if (host.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (m_map.usedMemory() + host.size() >= m_hashMemory) {
        if (writeHashMap(0) != 0) {
            return LOG_FAIL("writeHashMap fail %s", m_account.c_str());
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    const uint64_t key = urlKey(asBytes(host)); // always of the whole text
    ++m_visits;
    if (UrlRecord* const record = m_map.find(key)) {
        ++record->count;
        return 0;
    }
    if (host.size() > g_maxHostText) {
        LOG_INFO("host len %d too long, set to %d : %.*s", static_cast<int>(host.size()),
                 static_cast<int>(g_maxHostText), static_cast<int>(host.size()), host.data());
    }
    UrlRecordPtr record = makeUrlRecord({key, 1, type, host});
    if (!record) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    m_map.insert(std::move(record));
    return 0;
}

// The date hands nothing on: neither from the map nor from its temporary files.
void UrlStat::dropDate() {
    m_map.clear();
    dropSpillFile();
    m_memFileList.dropLastGroup();
    m_diskTempFileList.dropDate(m_dayStatus->date());
}

} // namespace kestrine
