// The directories that the service works in: fixed at start, swept and cleared while it runs.
#include "frame/log.h"
#include "frame/progress.h"
#include "frame/supervision.h"
#include "platform/platform.h"
#include "service/directory_guard.h"
#include "service/work_thread.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <cerrno>
#include <vector>

namespace kestrine {

namespace {

// Removes the entries "_delete_*" of a directory.
int sweepDirectory(const std::string& directory, const CodePlace& where) {
    std::vector<FindEntry> entries;
    if (Util::listEntries(names::deletedPattern(directory), entries, where) != 0) {
        return -1;
    }
    int result = 0;
    for (const FindEntry& entry : entries) {
        const std::string path = names::join(directory, entry.name);
        const bool link = (entry.attributes & g_attributeLink) != 0;
        if (Util::isDirectory(entry) && !link) {
            if (Util::deleteDir(path) != 0) {
                logMessage(LogLevel::Error, where, "deleteDir %s fail, errno %d", path.c_str(),
                           errno);
                result = -1;
            }
        } else if (Util::deleteFiles(path, entry.attributes) != 0) {
            logMessage(LogLevel::Error, where, "remove %s fail, errno %d", path.c_str(), errno);
            result = -1;
        }
    }
    return result;
}

// Deletes all but the marker; goes on after a failure.
int emptyMemoryDisk(const std::string& memoryDisk) {
    std::vector<FindEntry> entries;
    if (Util::listEntries(names::join(memoryDisk, "*"), entries, KESTRINE_HERE) != 0) {
        return -1;
    }
    int result = 0;
    for (const FindEntry& entry : entries) {
        const std::string path = names::join(memoryDisk, entry.name);
        if (entry.name != g_memoryDiskMarker && Util::deleteFiles(path, entry.attributes) != 0) {
            result = -1;
        }
    }
    return result;
}

} // namespace

int WorkThread::init() {
    // Nothing is deleted from either before both are locked.
    if (m_directories.fix(m_configuration) != 0 ||
        m_directories.lock(WorkingDirectories::Use::Alone) != LockResult::Locked) {
        return -1;
    }
    // What can be wrong with the settings was found by now, and what comes may take long.
    tellReady();
    if (waitForAccounts() != 0) {
        return -1;
    }
    if (reinit() != 0) {
        return LOG_FAIL("init fail");
    }
    return 0;
}

int WorkThread::removeTempFiles() {
    if (m_configuration.memoryDiskPath().empty()) {
        LOG_INFO("empty memory disk path, return");
        return 0;
    }
    // Tested again right before: since the start somebody may have put something there.
    if (!holdsOnlySpillFiles(m_directories.memoryDisk()) ||
        emptyMemoryDisk(m_directories.memoryDisk()) != 0) {
        return -1;
    }
    for (const std::string& account : m_accounts) {
        const std::string directory =
            names::accountDir(m_directories.urlStatRoot(), names::accountOf(account));
        const std::string path = names::diskTempTree(directory);
        const std::string command = "rmdir /S /Q \"" + path + "\"";
        LOG_DEBUG("command %s", command.c_str());
        const LongCall removal;
        // Only logged: what stays is never read, and a new file of the same name overwrites it.
        if (platform().removeTree(command, path) != 0 && errno != ENOENT) {
            LOG_INFO("system %s fail, errno %d", command.c_str(), errno);
        }
    }
    return 0;
}

int WorkThread::removeDeletedAccount() {
    return sweepDirectory(m_directories.urlStatRoot(), KESTRINE_HERE);
}

int WorkThread::removeDeletedDate() {
    int result = 0;
    for (const std::string& account : m_accounts) {
        const std::string directory =
            names::accountDir(m_directories.urlStatRoot(), names::accountOf(account));
        if (sweepDirectory(directory, KESTRINE_HERE) != 0) {
            result = -1;
        }
    }
    return result;
}

} // namespace kestrine
