// Merges of more inputs than may be open at once: as many as are too many are first merged into
// temporary files, group by group, again and again until few enough are left.
#pragma once

#include "merge/merge_files.h"

#include <functional>
#include <string>
#include <vector>

namespace kestrine {

class MergeRounds {
public:
    // Most inputs that a merge has open at once. Below what the C runtimes allow, and a bound on
    // the block buffers in memory.
    static constexpr size_t g_mostOpenInputs = 128;

    // Merges a group into a temporary file: 0, 1 when a stop was requested, g_tooFewHandles, -1.
    using MergeGroup = std::function<int(const MergeInputs& group, const std::string& output)>;

    // The temporary files lie in a directory of temporary files, which is made if need be.
    explicit MergeRounds(std::string directory) : m_directory(std::move(directory)) {}
    // Removes them; a kill leaves them to start-up.
    ~MergeRounds();
    MergeRounds(const MergeRounds&) = delete;
    MergeRounds& operator=(const MergeRounds&) = delete;

    // Merges until so few inputs are left as may be open at once, and leaves these in `inputs`. 0;
    // 1 when a stop was requested; -1.
    [[nodiscard]] int reduce(MergeInputs& inputs, const MergeGroup& merge);
    // After the system had too few handles for `count` inputs: fewer at once from now on. 0, or -1
    // when two are too many already.
    [[nodiscard]] int takeFewer(size_t count);

private:
    [[nodiscard]] int mergeOnce(MergeInputs& inputs, const MergeGroup& merge);

    std::string m_directory;
    std::vector<std::string> m_files;
    // One place is kept for the current day, week or month file, which is open all the time.
    size_t m_groupSize = g_mostOpenInputs - 1;
};

} // namespace kestrine
