#include "tree/directories.h"

#include "frame/log.h"
#include "frame/progress.h"
#include "platform/platform.h"
#include "tree/listing.h"
#include "tree/names.h"

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

std::string directoryAbove(const std::string& path) {
    const std::string_view above = names::parentOf(path);
    return std::string(above.empty() ? std::string_view(".") : above);
}

// Empties a directory and removes it.
int removeWhole(const std::string& directory, const CodePlace& where) {
    std::vector<FindEntry> entries;
    // The first failure ends it: what still has an entry cannot be removed.
    int result = listEntries(names::join(directory, "*"), entries, where);
    for (size_t i = 0; i < entries.size() && result == 0; ++i) {
        result = deleteFiles(names::join(directory, entries[i].name), entries[i].attributes);
    }
    if (result != 0) {
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
        return LOG_FAIL("param null");
    }
    const std::string taken = path.substr(0, g_maxPath);
    const size_t lastSlash = taken.rfind('/');
    const std::string last = taken.substr(0, lastSlash == std::string::npos ? 0 : lastSlash);
    // The common case takes one look.
    if (!last.empty() && platform().exists(last)) {
        return durable == Durable::Yes ? makeDurable(last) : 0;
    }
    std::string there; // the innermost that was there already
    for (size_t end = taken.find('/', 1); end != std::string::npos;
         end = taken.find('/', end + 1)) {
        const std::string prefix = taken.substr(0, end);
        if (isNoDirectory(prefix)) {
            continue;
        }
        if (platform().exists(prefix)) {
            there = prefix;
            continue;
        }
        // Who made that one may not have synced it yet.
        if (durable == Durable::Yes && !there.empty() && makeDurable(there) != 0) {
            return -1;
        }
        there.clear();
        // Another process may make the same one at this moment.
        if (platform().makeDirectory(prefix) != 0 && errno != EEXIST) {
            return LOG_FAIL("CreateDirectory %s fail, errcode %u", prefix.c_str(),
                            platform().lastError());
        }
        // Each before the next is made in it, so that a power failure leaves a prefix, too.
        if (durable == Durable::Yes && syncParent(prefix) != 0) {
            return -1;
        }
    }
    return 0;
}

int makeDurable(const std::string& directory) {
    if (isNoDirectory(directory) || !platform().exists(directory)) {
        return 0;
    }
    const std::string parent = directoryAbove(directory);
    const LongCall sync;
    // What may not be opened lies above the tree; who made it answers for it.
    if (platform().syncDirectory(parent) != 0 && errno != EACCES && errno != EPERM) {
        return LOG_FAIL("sync directory %s fail, errno %d", parent.c_str(), errno);
    }
    return 0;
}

int syncParent(const std::string& path) {
    const std::string parent = directoryAbove(path);
    const LongCall sync;
    if (platform().syncDirectory(parent) != 0) {
        return LOG_FAIL("sync directory %s fail, errno %d", parent.c_str(), errno);
    }
    return 0;
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
        return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
    }
    return 0;
}

int deleteDir(const std::string& path) {
    const std::string directory = path.substr(0, path.find_last_not_of('/') + 1);
    FileInfo info;
    if (platform().info(directory, info) != 0 || !info.isDirectory) {
        return LOG_FAIL("%s is not directory errcode %d", path.c_str(), platform().lastError());
    }
    // A link goes itself, never what it leads to.
    std::vector<FindEntry> entries;
    // Listed by its own name, since `info` looks through links.
    if (listEntries(directory, entries, KESTRINE_HERE) != 0) {
        return -1;
    }
    for (const FindEntry& entry : entries) {
        // Its characters may be wildcards, which match others, too.
        if (entry.name == names::lastComponent(directory) &&
            (entry.attributes & g_attributeLink) != 0) {
            return deleteFiles(directory, entry.attributes);
        }
    }
    return removeWhole(directory, KESTRINE_HERE);
}

} // namespace kestrine::Util
