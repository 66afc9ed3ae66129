#include "cycle/url_stat.h"

#include "cycle/period_stage.h"
#include "frame/buffer.h"
#include "frame/configuration.h"
#include "frame/data_path.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/ticks.h"
#include "input/url_file_new_data.h"
#include "merge/date_ledger.h"
#include "platform/platform.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <cerrno>

namespace kestrine {

namespace {

// An interval in seconds has passed, or nothing was ever done.
bool intervalPassed(uint32_t last, uint32_t elapsed, int32_t interval) {
    return last == 0 || elapsed >= static_cast<uint32_t>(interval) * 1000U;
}

} // namespace

UrlStat::~UrlStat() {
    if (m_spillFile) {
        LOG_ERROR("!!!!CAUTION unfree count %d", 1);
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
    const uint32_t now = platform().tickCount();
    const uint32_t elapsed = elapsedTicks(m_lastWeekMonth, now);
    const int32_t interval = m_configuration.weekmoncrcsortInterval();
    if (!intervalPassed(m_lastWeekMonth, elapsed, interval)) {
        LOG_DEBUG("time diff %us, interval %ds, not go on weekcrcsort and moncrcsort",
                  elapsed / 1000, interval);
        return 0;
    }
    LOG_DEBUG("time diff %us, interval %ds, go on weekcrcsort and moncrcsort", elapsed / 1000,
              interval);
    m_lastWeekMonth = now;
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
    if (settleGaps() != 0) {
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

// Before positions are read: those of new-day files beyond a gap would pass over the logs of what
// is missing.
int UrlStat::settleGaps() {
    std::vector<std::string> dates;
    if (Util::getDateInNewDirectory(accountDirectory(), dates) != 0) {
        return -1;
    }
    for (const std::string& date : dates) {
        std::vector<std::string> files;
        if (Util::getDaycrcsortNews(date, files) != 0) {
            return -1;
        }
        DateLedger ledger;
        if (!files.empty() &&
            (ledger.read(accountDirectory(), std::string(names::lastComponent(date))) != 0 ||
             ledger.settleGap() != 0)) {
            return -1;
        }
    }
    return 0;
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
    const uint32_t now = platform().tickCount();
    const uint32_t elapsed = elapsedTicks(m_lastDayMerge, now);
    const int32_t interval = m_configuration.daycrcsortInterval();
    if (!intervalPassed(m_lastDayMerge, elapsed, interval)) {
        LOG_DEBUG("daycrcsort time diff %us, interval %ds", elapsed / 1000, interval);
        return 0;
    }
    LOG_DEBUG("daycrcsort time diff %us, interval %ds, go on daycrcsortnew", elapsed / 1000,
              interval);
    m_lastDayMerge = now;
    if (new2Daycrcsort(account) != 0) {
        return LOG_FAIL("new2Daycrcsort %s fail", account.c_str());
    }
    return 0;
}

int UrlStat::weekcrcsort(const std::string& account) {
    m_account = account;
    PeriodStage stage(kindOf(Period::Week), account, accountDirectory());
    const int ret = stage.run(!m_weeksCompared);
    m_weeksCompared = m_weeksCompared || (ret == 0 && !stopRequested());
    return ret;
}

int UrlStat::moncrcsort(const std::string& account) {
    m_account = account;
    PeriodStage stage(kindOf(Period::Month), account, accountDirectory());
    const int ret = stage.run(!m_monthsCompared);
    m_monthsCompared = m_monthsCompared || (ret == 0 && !stopRequested());
    return ret;
}

std::string UrlStat::accountDirectory() const {
    return names::accountDir(m_configuration.urlStatRoot(), names::accountOf(m_account));
}

} // namespace kestrine
