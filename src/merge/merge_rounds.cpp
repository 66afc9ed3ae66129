#include "merge/merge_rounds.h"

#include "frame/log.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <algorithm>
#include <cassert>

namespace kestrine {

namespace {

MergeInputs part(const MergeInputs& inputs, size_t from, size_t size) {
    const auto first = inputs.paths.begin() + static_cast<ptrdiff_t>(from);
    const size_t temporary = inputs.temporary - std::min(inputs.temporary, from);
    return {{first, first + static_cast<ptrdiff_t>(size)}, inputs.kind, std::min(temporary, size)};
}

} // namespace

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

// Merges as many inputs as are too many, group by group and in their order, which decides what
// equal keys and positions become; those behind them stay as they are.
int MergeRounds::mergeOnce(MergeInputs& inputs, const MergeGroup& merge) {
    MergeInputs result{{}, inputs.kind};
    size_t from = 0;
    while (inputs.paths.size() - from > 1) {
        assert(m_groupSize >= 2);
        const size_t left = inputs.paths.size() - from;
        const size_t total = result.paths.size() + left;
        if (total <= m_groupSize) {
            break;
        }
        // No more than bring the number down to what may be open: each record merged is written
        // twice.
        const size_t size = std::min({m_groupSize, left, total - m_groupSize + 1});
        const std::string output =
            names::mergeRoundFile(m_directory, static_cast<int32_t>(m_files.size()));
        const int ret = merge(part(inputs, from, size), output);
        if (ret == g_tooFewHandles) {
            if (takeFewer(size) != 0) {
                return -1;
            }
            continue;
        }
        if (ret != 0) {
            return ret;
        }
        m_files.push_back(output);
        result.paths.push_back(output);
        from += size;
    }
    const MergeInputs rest = part(inputs, from, inputs.paths.size() - from);
    // Damage in a temporary file costs nothing but the merge; the rest keep what their kind says.
    result.temporary = result.paths.size() + rest.temporary;
    result.paths.insert(result.paths.end(), rest.paths.begin(), rest.paths.end());
    inputs = std::move(result);
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
