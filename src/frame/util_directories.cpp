// Directories: making, walking and deleting them.
#include "frame/listing.h"
#include "frame/log.h"
#include "frame/tree_names.h"
#include "frame/util.h"
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>

namespace kestrine::Util {

namespace {

// True for what cannot be made: an empty component, a drive ("D:") and the server of "//server/x".
bool isNoDirectory(std::string_view prefix) {
    const bool drive = prefix.size() == 2 && prefix[1] == ':';
    const bool server = prefix.starts_with("//") &&
                        prefix.find_first_not_of('/') != std::string_view::npos &&
                        prefix.find('/', prefix.find_first_not_of('/')) == std::string_view::npos;
    return drive || server || prefix.ends_with('/');
}

// What a deletion must see, which a walk passes over.
enum class DotEntries { Skip, Visit };

int walk(const std::string& directory, const Visitor& visitor, DotEntries dotEntries,
         const CodePlace& where) {
    std::vector<FindEntry> entries;
    if (listEntries(names::join(directory, "*"), entries, where) != 0) {
        return -1;
    }
    for (const FindEntry& entry : entries) {
        const bool skipped = dotEntries == DotEntries::Skip
                                 ? entry.name.starts_with('.')
                                 : entry.name == "." || entry.name == "..";
        if (!skipped && visitor(names::join(directory, entry.name), entry.attributes) != 0) {
            return -1;
        }
    }
    return 0;
}

// Empties a directory and removes it.
int removeWhole(const std::string& directory, const CodePlace& where) {
    if (walk(directory, deleteFiles, DotEntries::Visit, where) != 0) {
        logMessage(LogLevel::Error, where, "tranverse and delete files fail %s", directory.c_str());
        return -1;
    }
    if (platform().removeDirectory(directory) != 0) {
        logMessage(LogLevel::Error, where, "rmdir %s fail errno %d", directory.c_str(), errno);
        return -1;
    }
    return 0;
}

} // namespace

int createDir(const std::string& path, Durable durable) {
    if (path.empty()) {
        LOG_ERROR("param null");
        return -1;
    }
    const std::string taken = path.substr(0, g_maxPath);
    if (platform().exists(taken)) {
        return 0;
    }
    for (size_t end = taken.find('/', 1); end != std::string::npos;
         end = taken.find('/', end + 1)) {
        const std::string prefix = taken.substr(0, end);
        if (isNoDirectory(prefix) || platform().exists(prefix)) {
            continue;
        }
        if (platform().makeDirectory(prefix) != 0) {
            LOG_ERROR("CreateDirectory %s fail, errcode %u", prefix.c_str(),
                      platform().lastError());
            return -1;
        }
        if (durable == Durable::Yes && syncParent(prefix) != 0) {
            return -1;
        }
    }
    return 0;
}

int syncParent(const std::string& path) {
    const std::string_view above = names::parentOf(path);
    const std::string parent(above.empty() ? std::string_view(".") : above);
    if (platform().syncDirectory(parent) != 0) {
        LOG_ERROR("sync directory %s fail, errno %d", parent.c_str(), errno);
        return -1;
    }
    return 0;
}

int tranverse(const std::string& directory, const Visitor& visitor) {
    return walk(directory, visitor, DotEntries::Skip, KESTRINE_HERE);
}

int deleteFiles(const std::string& path, uint32_t attributes) {
    const bool directory = (attributes & g_attributeDirectory) != 0;
    const bool link = (attributes & g_attributeLink) != 0;
    if (directory && !link) {
        return removeWhole(path, KESTRINE_HERE);
    }
    // Which of the two removes a link to a directory depends on the system.
    const bool removed =
        platform().removeFile(path) == 0 || (directory && platform().removeDirectory(path) == 0);
    // What a listing names may be gone by now: somebody else's removal is as good.
    if (!removed && errno != ENOENT) {
        LOG_ERROR("remove %s fail, errno %d", path.c_str(), errno);
        return -1;
    }
    return 0;
}

int deleteDir(const std::string& path) {
    const std::string directory = path.substr(0, path.find_last_not_of('/') + 1);
    FileInfo info;
    if (platform().info(directory, info) != 0 || !info.isDirectory) {
        LOG_ERROR("%s is not directory errcode %d", path.c_str(), platform().lastError());
        return -1;
    }
    return removeWhole(directory, KESTRINE_HERE);
}

} // namespace kestrine::Util
