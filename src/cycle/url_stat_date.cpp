// One date alone, for who shares an account's work with others.
#include "cycle/day_stage.h"
#include "cycle/url_stat.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "input/url_file_new_data.h"

namespace kestrine {

int UrlStat::readDate(const std::string& account, const std::string& date) {
    m_account = account;
    if (DayStage(account, accountDirectory()).settleGap(date) != 0) {
        return LOG_FAIL("settle new-day files of %s, %s fail", account.c_str(), date.c_str());
    }
    UrlFileNewData newData(m_configuration);
    std::vector<DayStatus> days;
    if (newData.getDayStatusHaveNewData(account, days, date) != 0) {
        return LOG_FAIL("getDayStatusHaveNewData fail %s, %s", account.c_str(), date.c_str());
    }
    m_logsLeft = false;
    if (countLogs(days) != 0 || mergeTemporaries() != 0) {
        return -1;
    }
    return m_logsLeft && !stopRequested() ? 1 : 0;
}

} // namespace kestrine
