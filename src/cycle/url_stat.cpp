#include "cycle/url_stat.h"

#include "cycle/day_stage.h"
#include "cycle/period_stage.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "input/node_path.h"
#include "input/url_file_new_data.h"
#include "input/user_buffer.h"
#include "tree/directories.h"
#include "tree/free_space.h"
#include "tree/names.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cinttypes>

namespace kestrine {

UrlStat::~UrlStat() {
    if (!m_map.empty()) {
        LOG_ERROR("!!!!CAUTION unfree count %d", static_cast<int>(m_map.size()));
    }
}

int UrlStat::init() {
    m_hashMemory = static_cast<uint64_t>(m_configuration.maxHashMemory());
    return ReadBuffers::getInstance(&m_buffers) == 0 ? 0 : LOG_FAIL("getInstance fail");
}

int UrlStat::run(const std::string& account) {
    LOG_INFO("deal with account %s", account.c_str());
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    if (daycrcsort(account) != 0) {
        return LOG_FAIL("daycrcsort for %s fail", account.c_str());
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    const int32_t interval = m_configuration.weekmoncrcsortInterval();
    if (!m_weekMonthMerge.isDue(interval)) {
        LOG_DEBUG("time diff %us, interval %ds, not go on weekcrcsort and moncrcsort",
                  m_weekMonthMerge.passed(), interval);
        return 0;
    }
    LOG_DEBUG("time diff %us, interval %ds, go on weekcrcsort and moncrcsort",
              m_weekMonthMerge.passed(), interval);
    if (new2Daycrcsort(account) != 0) {
        return LOG_FAIL("new2Daycrcsort %s fail", account.c_str());
    }
    // In this order, since the month stage deletes what all three have folded in. After a stop the
    // later ones return 0 at once, so that none goes on where the one before has left off.
    if (weekcrcsort(account) != 0) {
        return LOG_FAIL("weekcrcsort fail");
    }
    if (moncrcsort(account) != 0) {
        return LOG_FAIL("moncrcsort fail");
    }
    return 0;
}

int UrlStat::daycrcsort(const std::string& account) {
    m_account = account;
    // Before positions are read: files beyond a gap name positions behind logs that must be read
    // again.
    if (DayStage(account, accountDirectory()).settleGaps() != 0) {
        return LOG_FAIL("settle new-day files of %s fail", account.c_str());
    }
    UrlFileNewData newData(m_configuration);
    std::vector<DayStatus> days;
    if (newData.getDayStatusHaveNewData(account, days) != 0) {
        return LOG_FAIL("getDayStatusHaveNewData fail %s", account.c_str());
    }
    if (countLogs(days) != 0) {
        return -1;
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    // Also without new logs: the merge into day files has an interval of its own.
    return daycrcsortnew(account);
}

int UrlStat::countLogs(std::vector<DayStatus>& days) {
    LOG_DEBUG("print daystatus having new dats:");
    for (const DayStatus& day : days) {
        day.print();
    }
    if (!days.empty() && makeDirectoriesDurable() != 0) {
        return LOG_FAIL("make directories of %s durable fail", m_account.c_str());
    }
    for (size_t i = 0; i < days.size() && !stopRequested(); ++i) {
        if (createTempFile(days[i]) != 0) {
            return LOG_FAIL("create temp file fail %s", m_account.c_str());
        }
    }
    return 0;
}

// Before anything below them is: temporary files make their directories without syncing, and a kill
// may have come between the making of a directory and its sync.
int UrlStat::makeDirectoriesDurable() const {
    const std::string directory = accountDirectory();
    return Util::createDir(directory + "/") == 0 ? Util::makeDurable(names::newTree(directory))
                                                 : -1;
}

// What the date or dates have left in memory and on disk becomes new-day files. 0, also after a
// stop, or -1.
int UrlStat::mergeTemporaries() {
    if (stopRequested()) {
        return 0;
    }
    if (m_memFileList.mergeFileList(&m_diskTempFileList) < 0) {
        return LOG_FAIL("MemFileList::mergeFileList fail %s", m_account.c_str());
    }
    if (!stopRequested() && m_diskTempFileList.mergeDiskTempFile() < 0) {
        return LOG_FAIL("mergeDiskTempFile fail %s", m_account.c_str());
    }
    return 0;
}

int UrlStat::daycrcsortnew(const std::string& account) {
    m_account = account;
    if (mergeTemporaries() != 0) {
        return -1;
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    const int32_t interval = m_configuration.daycrcsortInterval();
    if (!m_dayMerge.isDue(interval)) {
        LOG_DEBUG("daycrcsort time diff %us, interval %ds", m_dayMerge.passed(), interval);
        return 0;
    }
    LOG_DEBUG("daycrcsort time diff %us, interval %ds, go on daycrcsortnew", m_dayMerge.passed(),
              interval);
    if (new2Daycrcsort(account) != 0) {
        return LOG_FAIL("new2Daycrcsort %s fail", account.c_str());
    }
    return 0;
}

int UrlStat::new2Daycrcsort(const std::string& account) {
    m_account = account;
    return DayStage(account, accountDirectory()).run();
}

int UrlStat::weekcrcsort(const std::string& account) {
    m_account = account;
    return runPeriods(Period::Week, m_weeksCompared);
}

int UrlStat::moncrcsort(const std::string& account) {
    m_account = account;
    return runPeriods(Period::Month, m_monthsCompared);
}

int UrlStat::runPeriods(Period period, bool& compared) const {
    PeriodStage stage(kindOf(period), m_account, accountDirectory());
    const int ret = stage.run(!compared);
    // A comparison that failed or was stopped may have left periods out.
    compared = compared || (ret == 0 && !stopRequested());
    return ret;
}

std::string UrlStat::accountDirectory() const {
    return names::accountDir(m_configuration.urlStatRoot(), names::accountOf(m_account));
}

int UrlStat::createTempFile(DayStatus& status) {
    if (m_reader.init(m_buffers->stored.span(), m_buffers->raw.span(),
                      m_configuration.settleTime()) != 0) {
        LOG_ERROR("param invalid");
    }
    m_dayStatus = &status;
    m_visits = 0;
    m_spillFailed = false;
    m_map.clear();
    m_spill.openDate(m_account, status);
    bool moved = false;
    // No failure of the pass: other dates go on, and this one's logs are read again in the next.
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
    // The group takes the positions reached and is closed; until here any failure drops the date.
    if (m_spill.setDayStatusAndPathForMemdiskFile() != 0) {
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
            m_logsLeft = true;
            // Before its first visit this costs the others nothing: the node keeps its position.
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
    // What fails is tried again in the next pass, from the same position.
    const int ret = opened == 0 ? dealAllDatFile(m_reader) : -1;
    if (opened != 0) {
        LOG_ERROR("open %s fail", node.path.c_str());
    } else if (ret == 0) {
        assert(m_reader.hasPosition());
        // After a stop this is somewhere in the middle, but then the whole date is dropped.
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
        const int ret = reader.readHistory(m_buffers->records.span(), used);
        if (ret != g_loaderDone && ret != g_loaderNoMore) {
            return LOG_FAIL("LoaderReader fail %d", ret);
        }
        // Also with g_loaderNoMore: records that came before damage at the end are counted.
        if (used > 0 && dealOneUserBuffer(m_buffers->records.span().first(used)) != 0) {
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
    VisitBatch visits;
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
        visits.add(m_map, host, type);
        if (visits.full() && dealBatch(visits) != 0) {
            return -1;
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    return dealBatch(visits);
}

int UrlStat::dealBatch(VisitBatch& visits) {
    // Only fetched, not kept: a spill between two visits moves records.
    visits.loadRecords(m_map);
    for (const Visit& visit : visits.all()) {
        if (dealOneUrlRecord(visit) != 0) {
            return LOG_FAIL("dealOneUrlRecord from result %.*s fail",
                            static_cast<int>(visit.host.size()), visit.host.data());
        }
    }
    visits.clear();
    return 0;
}

int UrlStat::dealOneUrlRecord(const Visit& visit) {
    const std::string_view host = visit.host;
    // Tested before the lookup, which a spill would make useless: records move or go.
    if (m_map.usedMemory() + host.size() >= m_hashMemory) {
        if (writeHashMap(0) != 0) {
            return LOG_FAIL("writeHashMap fail %s", m_account.c_str());
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    ++m_visits;
    if (m_map.addVisit(visit.key)) {
        return 0;
    }
    if (host.size() > g_maxHostText) {
        LOG_INFO("host len %d too long, set to %d : %.*s", static_cast<int>(host.size()),
                 static_cast<int>(g_maxHostText), static_cast<int>(host.size()), host.data());
    }
    if (m_map.insert({visit.key, 1, visit.type, host}) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    return 0;
}

int UrlStat::writeHashMap(int writeAll) {
    if (m_dayStatus == nullptr) {
        return LOG_FAIL("param invalid %d", writeAll);
    }
    if (m_map.empty()) {
        return 0;
    }
    const std::string& root = m_configuration.urlStatRoot();
    // Of the statistics' volume: what is spilled to memory will be merged to there.
    if (Util::sleepWhileNoSpace(root) != 0) {
        return LOG_FAIL("sleepWhileNoSpace fail %s", root.c_str());
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    m_spillFailed = spill(writeAll != 0) != 0;
    return m_spillFailed ? -1 : 0;
}

int UrlStat::spill(bool all) {
    PageArray<KeyedRecord> list;
    if (m_map.list(list) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    std::span<KeyedRecord> records = list.span();
    const auto percent = static_cast<uint64_t>(m_configuration.exportPersent());
    const size_t keep = all ? 0 : static_cast<size_t>((100 - percent) * records.size() / 100);
    const Spared spared = reserveByPercent(keep, records);
    if (m_spill.writeRecords(m_map, records) != 0) {
        return -1;
    }
    // Before `retain` makes the table anew: there need not be memory for both.
    list.release();
    return m_map.retain(spared) == 0 ? 0 : LOG_FAIL("malloc fail, errno %d", errno);
}

// Takes the `keep` most visited records, which stay in the map, out of the list; the others keep
// their order.
Spared UrlStat::reserveByPercent(size_t keep, std::span<KeyedRecord>& records) {
    const Spared spared = Spared::choose(records, keep);
    const auto rest =
        std::remove_if(records.begin(), records.end(), [&spared](const KeyedRecord& record) {
            return spared.holds(record.key, record.visits);
        });
    records = records.first(static_cast<size_t>(rest - records.begin()));
    return spared;
}

// The date hands nothing on: neither from the map nor from its temporary files.
void UrlStat::dropDate() {
    m_map.clear();
    m_spill.dropDate();
}

} // namespace kestrine
