// Deleting top lists. A directory that is half deleted must not pass for a complete set, therefore
// it first takes the name of an incomplete one, which the start-up check deletes.
#include "frame/log.h"
#include "frame/tree_names.h"
#include "frame/util.h"
#include "platform/platform.h"

#include <cerrno>

namespace kestrine::Util {

int deleteTopLists(const std::string& directory) {
    const std::string lists = names::topDir(directory);
    const std::string doomed = names::topTempTempDir(directory);
    if (platform().exists(doomed) && deleteDir(doomed) != 0) {
        LOG_ERROR("deleteDir %s fail", doomed.c_str());
        return -1;
    }
    if (!platform().exists(lists)) {
        return 0;
    }
    if (platform().rename(lists, doomed) != 0) {
        LOG_ERROR("rename %s to %s fail, errno %d", lists.c_str(), doomed.c_str(), errno);
        return -1;
    }
    if (deleteDir(doomed) != 0) {
        LOG_ERROR("deleteDir %s fail", doomed.c_str());
        return -1;
    }
    return 0;
}

} // namespace kestrine::Util
