// Merges of more inputs than may be open at once: groups of them are first merged into temporary
// files, again and again until few enough are left. Round files carry the combined status of their
// inputs, lie in a directory of temporary files and are removed when the operation ends.
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_file_list.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {

namespace {

// One place is kept for the current day, week or month file, which joins the reduced inputs.
constexpr size_t g_inputsPerMerge = MergeFileList::g_maxOpenInputs - 1;

} // namespace

// 0 with the reduced list; 1 when a stop was requested; -1.
int MergeFileList::reduceInputs(const std::vector<std::string>& inputs,
                                const std::string& directory, std::vector<std::string>& reduced) {
    reduced = inputs;
    m_roundDirectory = directory;
    while (reduced.size() > g_inputsPerMerge) {
        if (Util::createDir(directory + "/", Durable::No) != 0) {
            return LOG_FAIL("create dir %s fail", directory.c_str());
        }
        std::vector<std::string> next;
        for (size_t from = 0; from < reduced.size(); from += g_inputsPerMerge) {
            const size_t to = std::min(from + g_inputsPerMerge, reduced.size());
            const std::vector<std::string> group(reduced.begin() + static_cast<ptrdiff_t>(from),
                                                 reduced.begin() + static_cast<ptrdiff_t>(to));
            const std::string output =
                names::mergeRoundFile(directory, static_cast<int32_t>(m_roundFiles.size()));
            m_roundFiles.push_back(output);
            const int ret = mergeOneRound(group, output);
            if (ret != 0) {
                return ret;
            }
            next.push_back(output);
        }
        reduced = std::move(next);
    }
    return 0;
}

// On failure the inputs stay with the object, so that the caller's clean-up sees the broken ones.
int MergeFileList::mergeOneRound(const std::vector<std::string>& inputs,
                                 const std::string& output) {
    if (openFileList(inputs, output) != 0 || readDayStatus() != 0) {
        return LOG_FAIL("openFileList fail %s", output.c_str());
    }
    DayStatus status;
    if (getNewDayStatus(status) != 0) {
        return LOG_FAIL("getNewDayStatus fail %s", output.c_str());
    }
    if (runMerge(output) != 0) {
        return -1;
    }
    if (stopRequested()) {
        return 1;
    }
    status.setTotalCount(m_output->totalCount());
    if (m_output->writeStatus(status) != 0 || closeUrlFiles() != 0) {
        return LOG_FAIL("writeStatus fail %s", output.c_str());
    }
    m_inputs.clear();
    m_output.reset();
    return 0;
}

void MergeFileList::removeRoundFiles() {
    if (m_roundFiles.empty()) {
        return;
    }
    for (const std::string& path : m_roundFiles) {
        (void)removeWorkFile(path); // reported there; start-up removes the whole directory
    }
    m_roundFiles.clear();
    // Empty only when nothing but round files lay in it.
    (void)platform().removeDirectory(m_roundDirectory);
}

} // namespace kestrine
