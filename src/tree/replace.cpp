// Replacing a finished file. S source, D destination, B its "_backup", T = S + ".temp", a name that
// counts as half-written and is removed by the start-up check. A kill after each step leaves
//   1. rename S to T         D and B as they were, T          the old file stays
//   2. remove B              D, T                             the old file stays
//   3. rename D to B         B, T                             B is renamed back to D
//   4. rename T to D         D (new), B (old)                 the new file stays
//   5. sync the directory    the same, also after a power failure
// Without D the steps 2 and 3 fall away and an old B is removed after step 4, so that one good file
// is there at every moment. B and S never meet without D.
#include "tree/replace.h"

#include "frame/log.h"
#include "platform/platform.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <cerrno>

namespace kestrine::Util {

int replaceFile(const std::string& source, const std::string& destination) {
    if (source.empty() || destination.empty()) {
        return LOG_FAIL("param null");
    }
    const auto move = [](const std::string& from, const std::string& to) {
        if (platform().rename(from, to) != 0) {
            return LOG_FAIL("rename %s to %s fail, errno %d", from.c_str(), to.c_str(), errno);
        }
        return 0;
    };
    const std::string backup = names::backupOf(destination);
    const auto removeBackup = [&backup] {
        if (platform().exists(backup) && platform().removeFile(backup) != 0) {
            return LOG_FAIL("remove fail, errno %d", errno);
        }
        return 0;
    };
    // Asked once, before anything moves: which steps follow depends on it.
    const bool replaces = platform().exists(destination);
    const std::string moving = names::tempOf(source);
    if (move(source, moving) != 0) {
        return -1;
    }
    if (replaces && (removeBackup() != 0 || move(destination, backup) != 0)) {
        return -1;
    }
    // A failure here may leave the backup alone, as a kill does; whoever opens the file next
    // restores it.
    if (move(moving, destination) != 0) {
        return -1;
    }
    // Until the rename it was the only good file.
    if (!replaces && removeBackup() != 0) {
        return -1;
    }
    // What the caller deletes next is held by the new file alone.
    return syncParent(destination);
}

} // namespace kestrine::Util
