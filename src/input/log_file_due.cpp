#include "input/log_file_due.h"

#include "frame/log.h"
#include "frame/retry.h"
#include "frame/text.h"
#include "platform/platform.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <cerrno>
#include <limits>

namespace kestrine {

namespace {

bool hasSuccessor(const std::string& typeDirectory, int32_t number) {
    return number < std::numeric_limits<int32_t>::max() &&
           platform().exists(names::datFile(typeDirectory, number + 1));
}

} // namespace

int isLogFileDue(const std::string& typeDirectory, int32_t number, int32_t settleTime) {
    const std::string path = names::datFile(typeDirectory, number);
    if (path.size() > g_maxPath) {
        LOG_ERROR("path %s too long, no more of this node is read", path.c_str());
        return 0;
    }
    FileInfo info;
    if (triedAgain([&] { return platform().info(path, info); }) != 0) {
        // What stays unreadable counts as not there, or the walk over numbers would have no end.
        return isPassing(errno) ? LOG_FAIL("stat %s fail, errno %d", path.c_str(), errno) : 0;
    }
    if (info.isOther && !platform().exists(path)) {
        return 0; // a link to nothing: what it leads to may come
    }
    // A file with a successor is not written to any more, however young it is.
    const bool rested = settleTime == 0 || platform().now() - info.modified >= settleTime;
    return rested || hasSuccessor(typeDirectory, number) ? 1 : 0;
}

int firstLogFileAbove(const std::string& typeDirectory, int32_t above, int32_t& number) {
    number = -1;
    const auto takeFile = [&](const std::string& path, uint32_t) {
        const int32_t found = leadingInteger(names::lastComponent(path));
        const bool wanted = found > above && (number < 0 || found < number);
        // Only where `datFile` would look for it: "007.dat", or one in another directory, is never
        // read.
        number = wanted && path == names::datFile(typeDirectory, found) ? found : number;
        return 0;
    };
    return Util::tranverse(typeDirectory, [&](const std::string& path, uint32_t attributes) {
        const bool directory = (attributes & g_attributeDirectory) != 0;
        return directory ? Util::tranverse(path, takeFile) : 0;
    });
}

} // namespace kestrine
