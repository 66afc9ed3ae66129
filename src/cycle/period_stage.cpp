#include "cycle/period_stage.h"

#include "cycle/publish.h"
#include "frame/install_root.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_file_list.h"
#include "platform/platform.h"
#include "storage/formal_file.h"
#include "storage/verify.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"

#include <algorithm>
#include <cerrno>

namespace kestrine {

namespace {

constexpr int g_again = 2; // result: a file was set aside, look at the period once more
// Every look but the last found one more damaged file; after so many the pass fails.
constexpr int g_maxLooks = 4;

} // namespace

int PeriodStage::run(bool all) {
    std::vector<Group> groups;
    if (listGroups(groups) != 0) {
        return -1;
    }
    for (size_t i = 0; i < groups.size() && !stopRequested(); ++i) {
        if (runGroup(groups[i], all) != 0) {
            return -1;
        }
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
    }
    return 0;
}

int PeriodStage::runPeriod(const std::string& date, std::optional<DuePeriod>& due) {
    due.reset();
    std::vector<Group> groups;
    if (listGroups(groups) != 0) {
        return -1;
    }
    const auto group = std::ranges::find_if(
        groups, [&date](const Group& one) { return one.begin <= date && date <= one.end; });
    if (group == groups.end()) {
        return 0;
    }
    const int found = findDue(*group, due);
    return found != 0 || !due ? found : runGroup(*group, true);
}

int PeriodStage::findDue(std::vector<DuePeriod>& due) {
    std::vector<Group> groups;
    if (listGroups(groups) != 0) {
        return -1;
    }
    for (const Group& group : groups) {
        std::optional<DuePeriod> found;
        if (findDue(group, found) != 0) {
            return -1;
        }
        if (found) {
            due.push_back(std::move(*found));
        }
    }
    return 0;
}

int PeriodStage::findDue(const Group& group, std::optional<DuePeriod>& due) const {
    Found found;
    const int ret = look(group, found);
    if (ret < 0) {
        return -1;
    }
    const bool forward = ret == 0 && found.current && found.state.fits(found.status);
    if (ret == g_again) {
        due = DuePeriod{group.begin, group.end, found.files, {}, true};
    } else if (isDue(found)) {
        due = DuePeriod{group.begin, group.end, found.files,
                        forward ? found.state.waitingFiles(found.status) : found.state.dayFiles(),
                        !forward};
    }
    return 0;
}

// Ascending.
int PeriodStage::listGroups(std::vector<Group>& groups) {
    std::vector<std::string> waiting;
    std::vector<std::string> dates;
    if (listDates(waiting, dates) != 0) {
        return -1;
    }
    while (!dates.empty()) {
        Group& group = groups.emplace_back();
        if (m_kind.nextGroup(dates, group.dates, group.begin, group.end) != 0) {
            return LOG_FAIL("%s fail", m_kind.nextGroupName.data());
        }
        group.waiting = std::ranges::any_of(group.dates, [&waiting](const std::string& date) {
            return std::ranges::binary_search(waiting, date);
        });
    }
    return 0;
}

int PeriodStage::runGroup(const Group& group, bool all) {
    int ret = g_again;
    for (int looks = 0; ret == g_again && looks < g_maxLooks; ++looks) {
        ret = mergeOnePeriod(group, all);
    }
    return ret == 0 ? 0 : -1;
}

// Dates with a directory of new-day files, and those with that or a day's directory, ascending. A
// directory that passes for a date by its digits but is none of the calendar belongs to no week and
// no month; its visits count in its day file.
int PeriodStage::listDates(std::vector<std::string>& waiting, std::vector<std::string>& all) {
    std::vector<std::string> listed;
    if (Util::getDateInNewDirectory(m_accountDir, listed) != 0) {
        return LOG_FAIL("getDatesWithDaycrcsortnew for %s fail", m_account.c_str());
    }
    for (const std::string& path : listed) {
        if (names::isCalendarDate(names::lastComponent(path))) {
            waiting.emplace_back(names::lastComponent(path));
        } else {
            LOG_INFO("%s is no date of the calendar, left out of week and month", path.c_str());
        }
    }
    all = waiting;
    if (Util::tranverse(m_accountDir, [&all](const std::string& path, uint32_t attributes) {
            if ((attributes & g_attributeDirectory) != 0 &&
                names::isCalendarDate(names::lastComponent(path))) {
                all.emplace_back(names::lastComponent(path));
            }
            return 0;
        }) != 0) {
        return LOG_FAIL("tranverse %s fail", m_accountDir.c_str());
    }
    std::ranges::sort(all);
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return 0;
}

// 0; g_again; -1.
int PeriodStage::mergeOnePeriod(const Group& group, bool all) {
    // It was compared with the day files before, and nothing has come since.
    if (!all && !group.waiting && platform().exists(filesOf(group).formal)) {
        return 0;
    }
    Found found;
    if (const int ret = look(group, found); ret != 0) {
        return ret;
    }
    if (!isDue(found)) {
        return 0;
    }
    const auto& [files, current, status, state] = found;
    LOG_DEBUG("all daycrcsortnew:");
    for (const std::string& path : state.waitingFiles()) {
        LOG_DEBUG("week files %s", path.c_str());
    }
    if (Util::createDir(files.directory + "/") != 0) {
        return LOG_FAIL("create dir %s fail", files.directory.c_str());
    }
    LOG_DEBUG("%s path %s", m_kind.fileName.data(), files.temp.c_str());
    if (!current) {
        return build(files, state);
    }
    return state.fits(status) ? bringForward(files, state) : countAnew(files, state, status);
}

// 0; g_again; -1.
int PeriodStage::look(const Group& group, Found& found) const {
    found.files = filesOf(group);
    std::unique_ptr<UrlFile> current;
    const int ret = openFormal(found.files, m_kind.period, current);
    if (ret < 0) {
        return LOG_FAIL("read status of %s fail", found.files.formal.c_str());
    }
    found.current = ret == 0;
    if (found.current) {
        found.status = *current->weekMonStatus();
    }
    // Closed before a merge opens it again and `publish` renames it.
    current.reset();
    const int read = found.state.read(m_accountDir, group.dates);
    return read > 0 ? g_again : read;
}

// Not when there is nothing to build from; or nothing that waits, and no need to count anew.
bool PeriodStage::isDue(const Found& found) {
    return found.current
               ? !found.state.waitingFiles(found.status).empty() || !found.state.fits(found.status)
               : !found.state.dayFiles().empty();
}

PeriodFiles PeriodStage::filesOf(const Group& group) const {
    return periodFiles(names::periodDir(m_accountDir, m_kind.period, group.begin, group.end),
                       m_kind.period);
}

int PeriodStage::bringForward(const PeriodFiles& files, const PeriodState& state) {
    const std::vector<std::string> inputs = state.waitingFiles();
    MergeFileList merge;
    const int ret = merge.mergeNew2WeekMon(inputs, {}, files.temp);
    if (ret != 0) {
        return ret < 0 ? LOG_FAIL("mergeNew2Week fail") : 0;
    }
    return publishOutput(files, state, inputs);
}

int PeriodStage::build(const PeriodFiles& files, const PeriodState& state) {
    MergeFileList merge;
    const int ret = merge.mergeNew2WeekMon({}, state.dayFiles(), files.temp);
    if (ret != 0) {
        return ret < 0 ? LOG_FAIL("mergeNew2Week fail") : 0;
    }
    return publishOutput(files, state, state.dayFiles());
}

int PeriodStage::countAnew(const PeriodFiles& files, const PeriodState& state,
                           const WeekMonStatus& status) {
    LOG_ERROR("%s does not fit the day files, counted anew from them", files.formal.c_str());
    MergeFileList merge;
    const int ret = merge.mergeNew2WeekMon({}, state.dayFiles(), files.temp);
    if (ret != 0) {
        return ret < 0 ? LOG_FAIL("mergeNew2Week fail") : 0;
    }
    // An error or a stop leaves the output: either ends the process, and the next start removes it.
    const int dominates = holdsAtLeast(files.temp, files.formal);
    uint64_t total = 0;
    if (dominates < 0 || dominates == 3) {
        return dominates < 0 ? -1 : 0;
    }
    if (dominates == 0 && readTotal(files.temp, m_kind.statusType, total) != 0) {
        return -1;
    }
    // What the old file would come to if it were brought forward over the gap.
    const uint64_t forward =
        static_cast<uint64_t>(status.totalCount()) + state.waitingTotal(status);
    if (dominates == 1 || (dominates == 0 && total >= forward)) {
        return publishOutput(files, state, state.dayFiles());
    }
    // The name must be free for whatever is merged instead.
    if (platform().removeFile(files.temp) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", files.temp.c_str(), errno);
    }
    // The old file is damaged: next time it is its backup that is compared, or the file is built.
    if (dominates == 2) {
        return Util::setAside(files.formal) == 0 ? g_again : -1;
    }
    LOG_ERROR("%s holds visits that the day files lack, it is kept and brought forward",
              files.formal.c_str());
    return bringForward(files, state);
}

int PeriodStage::publishOutput(const PeriodFiles& files, const PeriodState& state,
                               const std::vector<std::string>& inputs) {
    // All that wait, also those that this merge left out: the file holds them, as do day and week
    // files.
    const bool keep = !m_kind.deletesNewDayFiles || platform().exists(install::keepMarker());
    return publish(files, m_kind.period, inputs,
                   keep ? std::vector<std::string>() : state.waitingFiles());
}

} // namespace kestrine
