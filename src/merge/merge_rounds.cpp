#include "merge/merge_rounds.h"

#include "frame/log.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <algorithm>
#include <cassert>

namespace kestrine {

MergeRounds::~MergeRounds() {
    for (const std::string& path : m_files) {
        (void)removeWorkFile(path); // reported there; start-up removes the whole directory
    }
    if (!m_files.empty()) {
        // Empty only when nothing but these files lay in it.
        (void)platform().removeDirectory(m_directory);
    }
}

int MergeRounds::reduce(MergeInputs& inputs, const MergeGroup& merge) {
    while (inputs.paths.size() > m_groupSize) {
        if (Util::createDir(m_directory + "/", Durable::No) != 0) {
            return LOG_FAIL("create dir %s fail", m_directory.c_str());
        }
        if (const int ret = mergeOnce(inputs, merge); ret != 0) {
            return ret;
        }
    }
    return 0;
}

// All inputs once, group by group and in their order, which decides what equal positions become.
int MergeRounds::mergeOnce(MergeInputs& inputs, const MergeGroup& merge) {
    MergeInputs merged;
    for (auto from = inputs.paths.begin(); from != inputs.paths.end();) {
        assert(m_groupSize >= 2);
        const auto left = static_cast<size_t>(inputs.paths.end() - from);
        const auto to = from + static_cast<ptrdiff_t>(std::min(m_groupSize, left));
        const MergeInputs group{{from, to}, inputs.kind};
        const std::string output =
            names::mergeRoundFile(m_directory, static_cast<int32_t>(m_files.size()));
        const int ret = merge(group, output);
        if (ret == g_tooFewHandles) {
            if (takeFewer(group.paths.size()) != 0) {
                return -1;
            }
            continue;
        }
        if (ret != 0) {
            return ret;
        }
        m_files.push_back(output);
        merged.paths.push_back(output);
        from = to;
    }
    inputs = std::move(merged);
    return 0;
}

int MergeRounds::takeFewer(size_t count) {
    if (count <= 2) {
        return LOG_FAIL("too few handles to merge %d files", static_cast<int>(count));
    }
    m_groupSize = std::max<size_t>(std::min(m_groupSize, count) / 2, 2);
    LOG_INFO("too few handles to merge %d files, at most %d at once", static_cast<int>(count),
             static_cast<int>(m_groupSize));
    return 0;
}

} // namespace kestrine
