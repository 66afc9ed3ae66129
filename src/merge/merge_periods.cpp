// Merges into day, week and month files.
//
//  1. The final path (formal name + ".temp") must not exist.
//  2. The current file, if there is one, is opened and its status read; new-day files that it holds
//     already are dropped from the inputs. Nothing left: 1, nothing changed.
//  3. The work file (final path + ".temp"), if left over, is removed.
//  4. Very many inputs are merged in rounds first.
//  5. Inputs and work file are opened, the inputs' trailers read and combined.
//  6. The records are merged. On a stop the work file is removed: 1.
//  7. The status is written, the file synced and everything closed.
//  8. The top lists, which no longer match, are removed.
//  9. The work file is renamed to the final path.
// The caller replaces the current file and deletes inputs.
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_file_list.h"
#include "tree/names.h"

#include <algorithm>
#include <cerrno>

namespace kestrine {

namespace {

// ROOT/ACCOUNT/diskTemp/NAME for the files of ROOT/ACCOUNT/NAME.
std::string roundDirectoryOf(const std::string& finalPath) {
    const std::string_view directory = names::parentOf(finalPath);
    return names::diskTempDir(names::parentOf(directory), names::lastComponent(directory));
}

// 0 when the final path is free.
int checkFinalPath(const std::string& finalPath) {
    if (platform().exists(finalPath)) {
        return LOG_FAIL("ERROR %s should not exist!", finalPath.c_str());
    }
    return 0;
}

} // namespace

int MergeFileList::mergeNew2Day(const std::vector<std::string>& newFiles,
                                const std::string& finalPath) {
    if (newFiles.empty() || finalPath.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (checkFinalPath(finalPath) != 0) {
        return -1;
    }
    const std::string work = names::tempOf(finalPath);
    std::vector<std::string> files = newFiles;
    if (openSourceDayFile(names::withoutTemp(finalPath), files) != 0) {
        return abandon(work);
    }
    if (files.empty()) {
        const int closed = closeUrlFiles();
        m_inputs.clear();
        return closed == 0 ? 1 : -1;
    }
    m_dayStatus = DayStatus();
    const int prepared = prepareInputs(files, work, finalPath);
    if (prepared != 0) {
        return prepared > 0 ? stopAndReturn(work) : abandon(work);
    }
    if (getNewDayStatus(m_dayStatus) != 0) {
        LOG_ERROR("getNewDayStatus fail %s", finalPath.c_str());
        return abandon(work);
    }
    if (updateDayNewCounter(files, m_dayStatus) != 0) {
        LOG_ERROR("updateDayNewCounter fail %s", finalPath.c_str());
        return abandon(work);
    }
    if (runMerge(work) != 0) {
        return abandon(work);
    }
    if (stopRequested()) {
        return stopAndReturn(work);
    }
    m_dayStatus.setTotalCount(m_output->totalCount());
    validateTotalCount(m_output->totalCount());
    if (m_output->writeStatus(m_dayStatus) != 0) {
        LOG_ERROR("write status fail %s", work.c_str());
        return abandon(work);
    }
    return finishPeriod(work, finalPath) == 0 ? 0 : abandon(work);
}

int MergeFileList::mergeNew2WeekMon(const std::vector<std::string>& newFiles,
                                    const std::vector<std::string>& dayFiles,
                                    const std::string& finalPath) {
    if (finalPath.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (checkFinalPath(finalPath) != 0) {
        return -1;
    }
    const std::string work = names::tempOf(finalPath);
    const std::string source = names::withoutTemp(finalPath);
    const bool rebuild = !dayFiles.empty();
    std::vector<std::string> files = rebuild ? dayFiles : newFiles;
    m_weekMonStatus = WeekMonStatus();
    if (!rebuild && openSourceWeekMonFile(source, files) != 0) {
        return abandon(work);
    }
    if (files.empty()) {
        const int closed = closeUrlFiles();
        m_inputs.clear();
        return closed == 0 ? 1 : -1;
    }
    const int prepared = prepareInputs(files, work, finalPath);
    if (prepared != 0) {
        return prepared > 0 ? stopAndReturn(work) : abandon(work);
    }
    if ((rebuild ? takeDayCounters() : updateWeekMonStatus(files)) != 0) {
        LOG_ERROR("updateNewCounter fail %s", finalPath.c_str());
        return abandon(work);
    }
    if (runMerge(work) != 0) {
        return abandon(work);
    }
    if (stopRequested()) {
        return stopAndReturn(work);
    }
    m_weekMonStatus.setTotalCount(m_output->totalCount());
    validateTotalCount(m_output->totalCount());
    if (m_output->writeStatus(m_weekMonStatus) != 0) {
        LOG_ERROR("write status fail %s", work.c_str());
        return abandon(work);
    }
    return finishPeriod(work, finalPath) == 0 ? 0 : abandon(work);
}

// The current day file becomes the first input, and the files that it holds leave the list.
int MergeFileList::openSourceDayFile(const std::string& path, std::vector<std::string>& newFiles) {
    if (!platform().exists(path)) {
        return 0;
    }
    if (openInput(path) != 0) {
        return -1;
    }
    UrlFile& file = *m_inputs.back();
    if (file.readStatus(g_dayStatusType) != 0) {
        return LOG_FAIL("read status from %s fail", path.c_str());
    }
    LOG_DEBUG("src daycrcsort %s exist, status:", path.c_str());
    file.dayStatus()->print();
    removeOldPathForDaycrcsort(*file.dayStatus(), newFiles);
    return 0;
}

int MergeFileList::openSourceWeekMonFile(const std::string& path,
                                         std::vector<std::string>& newFiles) {
    if (newFiles.empty()) {
        return 0; // nothing to bring it forward with
    }
    if (openInput(path) != 0) {
        return -1;
    }
    UrlFile& file = *m_inputs.back();
    if (file.readStatus(g_weekMonStatusType) != 0) {
        return LOG_FAIL("read status from %s fail", path.c_str());
    }
    m_weekMonStatus = *file.weekMonStatus();
    removeOldPathForWeekMon(m_weekMonStatus, newFiles);
    return 0;
}

// Steps 3 to 5. 0; 1 when a stop was requested; -1.
int MergeFileList::prepareInputs(const std::vector<std::string>& files, const std::string& work,
                                 const std::string& finalPath) {
    if (platform().exists(work)) {
        LOG_INFO("file %s exist, delete it", work.c_str());
        if (removeWorkFile(work) != 0) {
            return -1;
        }
    }
    std::vector<std::unique_ptr<UrlFile>> source = std::move(m_inputs);
    m_inputs.clear();
    std::vector<std::string> reduced;
    const int rounds = reduceInputs(files, roundDirectoryOf(finalPath), reduced);
    m_inputs.insert(m_inputs.begin(), std::make_move_iterator(source.begin()),
                    std::make_move_iterator(source.end()));
    if (rounds != 0) {
        return rounds;
    }
    if (openFileList(reduced, work) != 0) {
        return LOG_FAIL("openFileList fail %s", finalPath.c_str());
    }
    if (readDayStatus() != 0) {
        return LOG_FAIL("readStatus fail %s", finalPath.c_str());
    }
    if (m_inputs.size() != source.size() + reduced.size()) {
        return LOG_FAIL("UrlFile * vector size %d", static_cast<int>(m_inputs.size()));
    }
    return 0;
}

// For every node the highest file number seen, for the counter the highest of the inputs.
int MergeFileList::getNewDayStatus(DayStatus& status) {
    for (const auto& file : m_inputs) {
        const DayStatus* const input = file->dayStatus();
        if (input == nullptr) {
            return LOG_FAIL("param null");
        }
        for (const NodeEntry& entry : input->entries()) {
            status.updateIfNewer(entry);
        }
        if (input->newCounter() > status.newCounter()) {
            status.setNewCounter(input->newCounter());
        }
    }
    return 0;
}

// The new-day files that were merged are recorded by their numbers.
int MergeFileList::updateWeekMonStatus(const std::vector<std::string>& newFiles) {
    for (const std::string& path : newFiles) {
        const int32_t number = names::newDayNumber(path);
        if (number < 0) {
            return LOG_FAIL("path %s invalid", path.c_str());
        }
        updateWeekMonStatusIFNewer(m_weekMonStatus, std::string(names::parentOf(path)), number);
    }
    return 0;
}

// A file built from day files holds what these hold: each date's counter comes from its day status.
int MergeFileList::takeDayCounters() {
    for (const auto& file : m_inputs) {
        const DayStatus* const status = file->dayStatus();
        if (status == nullptr) {
            return LOG_FAIL("param null");
        }
        const std::string_view dayDirectory = names::parentOf(file->path());
        const std::string datePath =
            names::newDayDir(names::parentOf(dayDirectory), names::lastComponent(dayDirectory));
        updateWeekMonStatusIFNewer(m_weekMonStatus, datePath, status->newCounter());
    }
    return 0;
}

int MergeFileList::finishPeriod(const std::string& workPath, const std::string& finalPath) {
    if (closeOutput(workPath, true) != 0) {
        return -1;
    }
    const std::string directory(names::parentOf(finalPath));
    if (deleteTopnDir(directory) != 0) {
        return LOG_FAIL("deleteTopnDir %s fail", directory.c_str());
    }
    if (platform().rename(workPath, finalPath) != 0) {
        return LOG_FAIL("rename from %s to %s fail, errno %d", workPath.c_str(), finalPath.c_str(),
                        errno);
    }
    if (syncDirectoryOf(finalPath) != 0) {
        return -1;
    }
    m_inputs.clear();
    m_output.reset();
    removeRoundFiles();
    return 0;
}

} // namespace kestrine
