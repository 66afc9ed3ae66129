// Setting a damaged file aside.
#include "frame/configuration.h"
#include "frame/log.h"
#include "frame/tree_names.h"
#include "frame/util.h"
#include "platform/platform.h"

#include <cerrno>

namespace kestrine::Util {

namespace {

// DIRECTORY/SECONDS_NAME, the seconds counted up until nothing of that name is there.
std::string freeDumpName(const std::string& directory, std::string_view name) {
    for (int64_t seconds = platform().now();; ++seconds) {
        std::string target = directory + std::to_string(seconds) + "_" + std::string(name);
        if (!platform().exists(target)) {
            return target;
        }
    }
}

} // namespace

int dumpBrokenFile(const std::string& path, const std::string& root1, const std::string& root2) {
    const bool below1 = names::liesBelow(path, root1);
    if (!below1 && !names::liesBelow(path, root2)) {
        LOG_ERROR("cannot find %s or %s in %s", root1.c_str(), root2.c_str(), path.c_str());
        return -1;
    }
    const std::string directory = names::dumpDir(below1 ? root1 : root2, path);
    if (createDir(directory) != 0) {
        LOG_ERROR("create dir %s fail", directory.c_str());
        return -1;
    }
    const std::string to = freeDumpName(directory, names::lastComponent(path));
    const std::string target = "\"" + to + "\"";
    std::string command = "move \"" + path + "\" " + target;
    replaceChar(command, '/', '\\');
    LOG_INFO("command %s", command.c_str());
    if (platform().move(command, path, to) != 0) {
        LOG_ERROR("system %s fail, errno %d", command.c_str(), errno);
        return -1;
    }
    LOG_INFO("dump %s to %s success ", path.c_str(), target.c_str());
    return 0;
}

int dumpBrokenFile(const std::string& path) {
    Configuration* configuration = nullptr;
    if (Configuration::getInstance(&configuration) != 0) {
        LOG_ERROR("Configuration::getInstance fail");
        return -1;
    }
    return dumpBrokenFile(path, configuration->urlStatRoot(), configuration->memoryDiskPath());
}

} // namespace kestrine::Util
