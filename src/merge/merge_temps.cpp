// Merges of temporary files: into one disk temporary file, or into a new-day file.
//
//  1. A left-over work file (output + ".temp") is removed.
//  2. Inputs and work file are opened, the inputs' trailers read, the records merged.
//  3. On a stop the work file is removed: no output.
//  4. The status is written; a new-day file is synced.
//  5. The work file is renamed to the output. For a new-day file this is the moment from which its
//     visits are counted: its status says how far the logs have been read.
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_file_list.h"
#include "tree/names.h"

#include <cerrno>

namespace kestrine {

int MergeFileList::mergeTemp2Temp(const std::vector<std::string>& inputs, const DayStatus& status,
                                  const std::string& output) {
    return mergeTemps(inputs, status, output, false);
}

int MergeFileList::mergeTemps(const std::vector<std::string>& inputs, const DayStatus& status,
                              const std::string& output, bool durable) {
    const std::string work = names::tempOf(output);
    if (removeWorkFile(work) != 0) {
        return -1;
    }
    std::vector<std::string> reduced;
    const std::string roundDirectory(names::parentOf(durable ? inputs.front() : output));
    const int rounds = reduceInputs(inputs, roundDirectory, reduced);
    if (rounds != 0) {
        return rounds > 0 ? stopAndReturn(work) : abandon(work);
    }
    if (openFileList(reduced, work) != 0) {
        LOG_ERROR("openFileList fail %s", output.c_str());
        return abandon(work);
    }
    if (readDayStatus() != 0) {
        LOG_ERROR("readStatus fail");
        return abandon(work);
    }
    if (runMerge(work) != 0) {
        return abandon(work);
    }
    if (stopRequested()) {
        return stopAndReturn(work);
    }
    DayStatus written = status;
    written.setTotalCount(m_output->totalCount());
    if (m_output->writeStatus(written) != 0) {
        if (durable) {
            LOG_ERROR("writeStatus fail %s", output.c_str());
        } else {
            LOG_ERROR("writeStatus %s fail", output.c_str());
        }
        return abandon(work);
    }
    if (closeOutput(work, durable) != 0) {
        return abandon(work);
    }
    if (platform().rename(work, output) != 0) {
        LOG_ERROR("rename from %s to %s fail", work.c_str(), output.c_str());
        return abandon(work);
    }
    if (durable && syncDirectoryOf(output) != 0) {
        return abandon(work);
    }
    removeRoundFiles();
    m_inputs.clear();
    return 0;
}

int MergeFileList::mergeTemp2New(const std::vector<std::string>& inputs, const DayStatus& status,
                                 const std::string& newFile) {
    const std::string work = names::tempOf(newFile);
    if (platform().exists(work)) {
        LOG_INFO("file %s exist, delete it", work.c_str());
    }
    if (!inputs.empty()) {
        return mergeTemps(inputs, status, newFile, true);
    }
    if (removeWorkFile(work) != 0) {
        return -1;
    }
    if (createEmptyDaycrcsortNew(work, status) != 0) {
        LOG_ERROR("createEmptyDaycrcsortNew %s fail", work.c_str());
        return abandon(work);
    }
    if (stopRequested()) {
        return stopAndReturn(work);
    }
    if (closeOutput(work, true) != 0) {
        return abandon(work);
    }
    if (platform().rename(work, newFile) != 0) {
        LOG_ERROR("rename %s to %s fail, errno %d, delete %s", work.c_str(), newFile.c_str(), errno,
                  work.c_str());
        return abandon(work);
    }
    return syncDirectoryOf(newFile) == 0 ? 0 : abandon(work);
}

// Leaves the written file open, for `closeOutput`.
int MergeFileList::createEmptyDaycrcsortNew(const std::string& path, const DayStatus& status) {
    LOG_INFO("some dat files have no url, just create an empty daycrcsortnew with only status "
             "indicates the fileid");
    m_output = std::make_unique<UrlFile>();
    if (m_output->open(path, OpenMode::Truncate) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    ++m_openFiles;
    DayStatus written = status;
    written.setTotalCount(0);
    if (m_output->writeStatus(written) != 0) {
        return LOG_FAIL("write status %s fail", path.c_str());
    }
    return 0;
}

} // namespace kestrine
