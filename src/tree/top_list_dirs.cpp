// Deleting top lists. A directory that is half deleted must not pass for a complete set, therefore
// it first takes the name of an incomplete one, which the start-up check deletes. The set that is
// complete, but not in place, goes too: it is of the same file.
#include "tree/top_list_dirs.h"

#include "frame/log.h"
#include "platform/platform.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <cerrno>

namespace kestrine::Util {

int deleteListDirectory(const std::string& path) {
    FileInfo info;
    if (!platform().exists(path)) {
        return 0;
    }
    // When this cannot be told, deleting the directory reports why.
    const bool file = platform().info(path, info) == 0 && !info.isDirectory;
    if ((file ? platform().removeFile(path) : deleteDir(path)) != 0) {
        return LOG_FAIL("deleteDir %s fail", path.c_str());
    }
    return 0;
}

int deleteTopLists(const std::string& directory) {
    const std::string doomed = names::topTempTempDir(directory);
    // The complete set first: were it all that a kill leaves, start-up would put it in place.
    for (const std::string& lists : {names::topTempDir(directory), names::topDir(directory)}) {
        // A directory is not renamed over another one.
        if (deleteListDirectory(doomed) != 0) {
            return -1;
        }
        if (!platform().exists(lists)) {
            continue;
        }
        if (platform().rename(lists, doomed) != 0) {
            return LOG_FAIL("rename %s to %s fail, errno %d", lists.c_str(), doomed.c_str(), errno);
        }
    }
    return deleteListDirectory(doomed);
}

} // namespace kestrine::Util
