#include "cycle/url_stat.h"

#include "aggregate/priority_queue.h"
#include "cycle/day_stage.h"
#include "cycle/period_stage.h"
#include "frame/data_path.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/ticks.h"
#include "input/node_path.h"
#include "input/url_file_new_data.h"
#include "input/user_buffer.h"
#include "platform/platform.h"
#include "storage/url_key.h"
#include "tree/directories.h"
#include "tree/free_space.h"
#include "tree/names.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>

namespace kestrine {

namespace {

// Whether an interval in seconds has passed since tick `last`, 0 being never; then it begins anew.
// `seconds` is what has passed.
bool isDue(uint32_t& last, int32_t interval, uint32_t& seconds) {
    const uint32_t now = platform().tickCount();
    const uint32_t elapsed = elapsedTicks(last, now);
    seconds = elapsed / 1000;
    const bool due = last == 0 || elapsed >= static_cast<uint32_t>(interval) * 1000U;
    last = due ? now : last;
    return due;
}

void sortByKey(std::vector<KeyedRecord>& records) {
    std::sort(records.begin(), records.end(),
              [](const KeyedRecord& a, const KeyedRecord& b) { return a.key < b.key; });
}

} // namespace

UrlStat::~UrlStat() {
    if (!m_map.empty()) {
        LOG_ERROR("!!!!CAUTION unfree count %d", static_cast<int>(m_map.size()));
    }
}

int UrlStat::init() {
    m_hashMemory = static_cast<uint64_t>(m_configuration.maxHashMemory());
    const LoggerSettings settings;
    m_bufferSize = settings.defaultBlockSize;
    for (Buffer& buffer : m_buffers) {
        if (buffer.allocate(static_cast<size_t>(m_bufferSize)) != 0) {
            return LOG_FAIL("malloc fail, errno %d", errno);
        }
    }
    return 0;
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
    uint32_t seconds = 0;
    if (!isDue(m_lastWeekMonth, interval, seconds)) {
        LOG_DEBUG("time diff %us, interval %ds, not go on weekcrcsort and moncrcsort", seconds,
                  interval);
        return 0;
    }
    LOG_DEBUG("time diff %us, interval %ds, go on weekcrcsort and moncrcsort", seconds, interval);
    if (new2Daycrcsort(account) != 0) {
        return LOG_FAIL("new2Daycrcsort %s fail", account.c_str());
    }
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
    if (DayStage(account, accountDirectory()).settleGaps() != 0) {
        return LOG_FAIL("settle new-day files of %s fail", account.c_str());
    }
    UrlFileNewData newData(m_configuration);
    std::vector<DayStatus> days;
    if (newData.getDayStatusHaveNewData(account, days) != 0) {
        return LOG_FAIL("getDayStatusHaveNewData fail %s", account.c_str());
    }
    LOG_DEBUG("print daystatus having new dats:");
    for (const DayStatus& day : days) {
        day.print();
    }
    if (!days.empty() && makeDirectoriesDurable() != 0) {
        return LOG_FAIL("make directories of %s durable fail", account.c_str());
    }
    for (DayStatus& day : days) {
        if (createTempFile(day) != 0) {
            return LOG_FAIL("create temp file fail %s", account.c_str());
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    return daycrcsortnew(account);
}

// Before anything below them is: temporary files make their directories without syncing, and a kill
// may have come between the making of a directory and its sync.
int UrlStat::makeDirectoriesDurable() const {
    const std::string directory = accountDirectory();
    return Util::createDir(directory + "/") == 0 ? Util::makeDurable(names::newTree(directory))
                                                 : -1;
}

int UrlStat::daycrcsortnew(const std::string& account) {
    if (m_memFileList.mergeFileList(&m_diskTempFileList) < 0) {
        return LOG_FAIL("MemFileList::mergeFileList fail %s", account.c_str());
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    if (m_diskTempFileList.mergeDiskTempFile() < 0) {
        return LOG_FAIL("mergeDiskTempFile fail %s", account.c_str());
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        return 0;
    }
    const int32_t interval = m_configuration.daycrcsortInterval();
    uint32_t seconds = 0;
    if (!isDue(m_lastDayMerge, interval, seconds)) {
        LOG_DEBUG("daycrcsort time diff %us, interval %ds", seconds, interval);
        return 0;
    }
    LOG_DEBUG("daycrcsort time diff %us, interval %ds, go on daycrcsortnew", seconds, interval);
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
    compared = compared || (ret == 0 && !stopRequested());
    return ret;
}

std::string UrlStat::accountDirectory() const {
    return names::accountDir(m_configuration.urlStatRoot(), names::accountOf(m_account));
}

int UrlStat::createTempFile(DayStatus& status) {
    if (m_reader.init(m_buffers[0].span(), m_buffers[1].span(), m_configuration.settleTime()) !=
        0) {
        LOG_ERROR("param invalid");
    }
    m_dayStatus = &status;
    m_visits = 0;
    m_spillFailed = false;
    m_map.clear();
    m_spill.openDate(m_account, status);
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
    m_spillFailed = m_spill.writeRecords(records) != 0;
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

// The date hands nothing on: neither from the map nor from its temporary files.
void UrlStat::dropDate() {
    m_map.clear();
    m_spill.dropDate();
}

} // namespace kestrine
