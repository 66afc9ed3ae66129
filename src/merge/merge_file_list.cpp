// The steps of every merge:
//
//  1. Day, week and month: the final path (formal name + ".temp") must not exist.
//  2. Day, week and month: the current file, if there is one, is opened and its status read;
//     new-day files that it holds already are dropped from the inputs. Nothing left: 1.
//  3. A left-over work file (output + ".temp") is removed.
//  4. Very many inputs are merged in rounds first.
//  5. Inputs and work file are opened, the inputs' trailers read and combined.
//  6. The records are merged. On a stop the work file is removed: 1.
//  7. The status is written, the file synced, unless it is a temporary one, and everything closed.
//  8. Day, week and month: the top lists, which no longer match, are removed.
//  9. The work file is renamed to the output. For a new-day file this is the moment from which its
//     visits are counted: its status says how far the logs have been read.
// The caller replaces the current file and deletes inputs.
#include "merge/merge_file_list.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_engine.h"
#include "merge/period_status.h"
#include "tree/names.h"
#include "tree/top_list_dirs.h"

#include <cerrno>
#include <cinttypes>

namespace kestrine {

namespace {

// ROOT/ACCOUNT/diskTemp/NAME for the files of ROOT/ACCOUNT/NAME.
std::string roundDirectoryOf(const std::string& finalPath) {
    const std::string_view directory = names::parentOf(finalPath);
    return names::diskTempDir(names::parentOf(directory), names::lastComponent(directory));
}

int removeLeftOver(const std::string& work) {
    if (platform().exists(work)) {
        LOG_INFO("file %s exist, delete it", work.c_str());
    }
    return removeWorkFile(work);
}

void validateTotalCount(const std::vector<UrlFile*>& inputs, uint64_t outputTotal) {
    uint64_t sum = 0;
    for (const UrlFile* const file : inputs) {
        const uint64_t total = file->statusTotal();
        LOG_DEBUG("%s %" PRId64, file->path().c_str(), static_cast<int64_t>(total));
        sum += total;
    }
    // Reported only: the output names the sum of what was written into it, whatever its inputs say.
    if (sum != outputTotal) {
        LOG_INFO("total count not match %" PRId64 " %" PRId64, static_cast<int64_t>(sum),
                 static_cast<int64_t>(outputTotal));
    }
}

} // namespace

MergeFileList::~MergeFileList() {
    if (m_openFiles != 0) {
        LOG_INFO("ERROR unfree count %d !!!!!!", m_openFiles);
    }
}

// ---- temporary files

int MergeFileList::mergeTemp2Temp(const std::vector<std::string>& inputs, const DayStatus& status,
                                  const std::string& output) {
    return removeWorkFile(names::tempOf(output)) == 0
               ? mergeTemps(inputs, status, output, Durable::No)
               : -1;
}

int MergeFileList::mergeTemp2New(const std::vector<std::string>& inputs, const DayStatus& status,
                                 const std::string& newFile) {
    const std::string work = names::tempOf(newFile);
    if (removeLeftOver(work) != 0) {
        return -1;
    }
    // Logs without any host: without a file that carries their positions they would be read for
    // ever.
    if (!inputs.empty()) {
        return mergeTemps(inputs, status, newFile, Durable::Yes);
    }
    MergeFiles files(m_openFiles);
    if (createEmptyDaycrcsortNew(files, work, status) != 0) {
        return LOG_FAIL("createEmptyDaycrcsortNew %s fail", work.c_str());
    }
    if (stopRequested()) {
        return files.stopAndReturn();
    }
    if (files.closeOutput(Durable::Yes) != 0) {
        return -1;
    }
    if (files.renameOutput(newFile) != 0) {
        return LOG_FAIL("rename %s to %s fail, errno %d, delete %s", work.c_str(), newFile.c_str(),
                        errno, work.c_str());
    }
    // The name must last: the caller deletes temporary files, and later numbers count on this one.
    return Util::syncParent(newFile);
}

// Leaves the written file open.
int MergeFileList::createEmptyDaycrcsortNew(MergeFiles& files, const std::string& path,
                                            const DayStatus& status) {
    LOG_INFO("some dat files have no url, just create an empty daycrcsortnew with only status "
             "indicates the fileid");
    if (files.openOutput(path) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    DayStatus written = status;
    written.setTotalCount(0);
    return files.output().writeStatus(written) == 0
               ? 0
               : LOG_FAIL("write status %s fail", path.c_str());
}

int MergeFileList::mergeTemps(const std::vector<std::string>& paths, const DayStatus& status,
                              const std::string& output, Durable durable) {
    const bool isNew = durable == Durable::Yes;
    const std::string work = names::tempOf(output);
    MergeInputs inputs{paths, InputKind::Temporary};
    // In `diskTemp` in both cases, which start-up removes as a whole.
    MergeRounds rounds(std::string(names::parentOf(isNew ? paths.front() : output)));
    MergeFiles files(m_openFiles);
    if (const int opened = openInputs(files, rounds, inputs, work); opened != 0) {
        return opened > 0 ? files.stopAndReturn()
                          : LOG_FAIL("openFileList fail %s", output.c_str());
    }
    if (files.readDayStatus() != 0) {
        return LOG_FAIL("readStatus fail");
    }
    if (const int merged = runMerge(files); merged != 0) {
        return merged > 0 ? files.stopAndReturn() : -1;
    }
    DayStatus written = status;
    written.setTotalCount(files.output().totalCount());
    if (files.output().writeStatus(written) != 0) {
        return isNew ? LOG_FAIL("writeStatus fail %s", output.c_str())
                     : LOG_FAIL("writeStatus %s fail", output.c_str());
    }
    // From here on the destructor of `files` has nothing to close, but a work file to remove until
    // the rename.
    if (files.closeOutput(durable) != 0) {
        return -1;
    }
    if (files.renameOutput(output) != 0) {
        return LOG_FAIL("rename from %s to %s fail", work.c_str(), output.c_str());
    }
    return isNew ? Util::syncParent(output) : 0;
}

// ---- day, week and month files

int MergeFileList::mergeNew2Day(const std::vector<std::string>& newFiles,
                                const std::string& finalPath) {
    if (newFiles.empty()) {
        return LOG_FAIL("param invalid");
    }
    return mergePeriod({newFiles, InputKind::NewDay}, DayStatus(), finalPath);
}

int MergeFileList::mergeNew2WeekMon(const std::vector<std::string>& newFiles,
                                    const std::vector<std::string>& dayFiles,
                                    const std::string& finalPath) {
    if (dayFiles.empty()) {
        return mergePeriod({newFiles, InputKind::NewDay}, WeekMonStatus(), finalPath);
    }
    // Before anything is merged: temporary merges no longer tell the dates apart.
    WeekMonStatus status;
    if (takeDayCounters(dayFiles, m_openFiles, status) != 0) {
        return LOG_FAIL("updateNewCounter fail %s", finalPath.c_str());
    }
    return mergePeriod({dayFiles, InputKind::Formal}, status, finalPath);
}

template <typename Status>
int MergeFileList::mergePeriod(MergeInputs inputs, Status status, const std::string& finalPath) {
    if (finalPath.empty()) {
        return LOG_FAIL("param invalid");
    }
    // Left by a stage that failed before it was put in place. Start-up removes it; overwriting it
    // would hide what went wrong.
    if (platform().exists(finalPath)) {
        return LOG_FAIL("ERROR %s should not exist!", finalPath.c_str());
    }
    // First made and last gone, since nothing open can be removed.
    MergeRounds rounds(roundDirectoryOf(finalPath));
    MergeFiles files(m_openFiles);
    // Formal inputs are all the dates of a period that is built, or counted anew beside its old
    // file: that one takes no part.
    if (inputs.kind == InputKind::NewDay &&
        openSource(files, names::withoutTemp(finalPath), inputs.paths, status) != 0) {
        return -1;
    }
    if (inputs.paths.empty()) {
        return files.closeUrlFiles() == 0 ? 1 : -1;
    }
    return mergePeriodInputs(files, rounds, inputs, status, finalPath);
}

template <typename Status>
int MergeFileList::mergePeriodInputs(MergeFiles& files, MergeRounds& rounds, MergeInputs& inputs,
                                     Status& status, const std::string& finalPath) {
    const std::string work = names::tempOf(finalPath);
    if (removeLeftOver(work) != 0) {
        return -1;
    }
    // Rounds put temporary files in the place of paths; what is folded in is told by the names
    // before.
    const MergeInputs folded = inputs;
    const size_t sources = files.inputs().size();
    if (const int opened = openInputs(files, rounds, inputs, work); opened != 0) {
        return opened > 0 ? files.stopAndReturn()
                          : LOG_FAIL("openFileList fail %s", finalPath.c_str());
    }
    if (files.readDayStatus() != 0) {
        return LOG_FAIL("readStatus fail %s", finalPath.c_str());
    }
    if (files.inputs().size() != sources + inputs.paths.size()) {
        return LOG_FAIL("UrlFile * vector size %d", static_cast<int>(files.inputs().size()));
    }
    if (folded.kind == InputKind::NewDay && combine(files, folded.paths, finalPath, status) != 0) {
        return -1;
    }
    if (const int merged = runMerge(files); merged != 0) {
        return merged > 0 ? files.stopAndReturn() : -1;
    }
    const uint64_t total = files.output().totalCount();
    status.setTotalCount(static_cast<decltype(status.totalCount())>(total));
    validateTotalCount(files.inputs(), total);
    if (files.output().writeStatus(status) != 0) {
        return LOG_FAIL("write status fail %s", work.c_str());
    }
    return finishPeriod(files, finalPath);
}

int MergeFileList::finishPeriod(MergeFiles& files, const std::string& finalPath) {
    if (files.closeOutput(Durable::Yes) != 0) {
        return -1;
    }
    const std::string directory(names::parentOf(finalPath));
    // While the old file still stands: a kill leaves it without lists, which start-up makes again.
    if (deleteTopnDir(directory) != 0) {
        return LOG_FAIL("deleteTopnDir %s fail", directory.c_str());
    }
    if (files.renameOutput(finalPath) != 0) {
        return LOG_FAIL("rename from %s to %s fail, errno %d", names::tempOf(finalPath).c_str(),
                        finalPath.c_str(), errno);
    }
    return Util::syncParent(finalPath);
}

int MergeFileList::deleteTopnDir(const std::string& directory) {
    return Util::deleteTopLists(directory);
}

// ---- steps of both

// Rounds, until the system has the handles for what is left. 0; 1 when a stop was requested; -1.
int MergeFileList::openInputs(MergeFiles& files, MergeRounds& rounds, MergeInputs& inputs,
                              const std::string& work) {
    const auto merge = [this](const MergeInputs& group, const std::string& output) {
        return mergeOneRound(group, output);
    };
    for (;;) {
        if (const int reduced = rounds.reduce(inputs, merge); reduced != 0) {
            return reduced;
        }
        const int opened = files.openFileList(inputs, work);
        if (opened != g_tooFewHandles) {
            return opened;
        }
        if (rounds.takeFewer(inputs.paths.size()) != 0) {
            return -1;
        }
    }
}

// The temporary file carries the combined status of its inputs.
int MergeFileList::mergeOneRound(const MergeInputs& group, const std::string& output) {
    MergeFiles files(m_openFiles);
    const int opened = files.openFileList(group, output);
    if (opened == g_tooFewHandles) {
        return opened;
    }
    DayStatus status;
    if (opened != 0 || files.readDayStatus() != 0 || getNewDayStatus(files.inputs(), status) != 0) {
        return LOG_FAIL("openFileList fail %s", output.c_str());
    }
    if (const int merged = runMerge(files); merged != 0) {
        return merged;
    }
    status.setTotalCount(files.output().totalCount());
    if (files.output().writeStatus(status) != 0 || files.closeUrlFiles() != 0) {
        return LOG_FAIL("writeStatus fail %s", output.c_str());
    }
    // Closed, not synced: it is an input of the next round, or of the merge itself.
    files.keepOutput();
    return 0;
}

// 0; 1 when a stop was requested, the output is then incomplete; -1.
int MergeFileList::runMerge(MergeFiles& files) {
    if (commonMergeProcess(&files.output(), files.inputs()) != 0) {
        return LOG_FAIL("commonMergeProcess fail %s", files.output().path().c_str());
    }
    return stopRequested() ? 1 : 0;
}

int MergeFileList::commonMergeProcess(UrlFile* output, const std::vector<UrlFile*>& inputs) {
    if (output == nullptr || inputs.empty()) {
        return LOG_FAIL("param invalid");
    }
    return MergeEngine(*output).commonMergeProcess(inputs);
}

} // namespace kestrine
