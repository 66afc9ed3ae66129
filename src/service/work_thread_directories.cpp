// The directories that the service works in: fixed at start, swept and cleared while it runs.
#include "frame/data_path.h"
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
#include <memory>
#include <vector>

namespace kestrine {

namespace {

int createIfMissing(const std::string& path) {
    if (Util::createDir(path.ends_with('/') ? path : path + "/") != 0) {
        return LOG_FAIL("create %s fail", path.c_str());
    }
    return 0;
}

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

// The machine-wide name does not reach other containers and other machines, which may see the same
// directories.
int lockDirectory(const std::string& directory, const std::string& lockFile,
                  std::unique_ptr<NamedEvent>& lock) {
    switch (platform().lockFile(lockFile, lock)) {
    case LockResult::Locked:
        return 0;
    case LockResult::HeldByAnother:
        return LOG_FAIL("another instance is running on %s", directory.c_str());
    // No reason to refuse the volume: the name still keeps a second service off this machine.
    case LockResult::NotSupported:
        LOG_INFO("no locks on the volume of %s, errno %d", directory.c_str(), errno);
        return 0;
    case LockResult::Failed:
        break;
    }
    return LOG_FAIL("lock %s fail, errno %d", lockFile.c_str(), errno);
}

} // namespace

int WorkThread::init() {
    if (getDataPath(m_dataPath) != 0) {
        return LOG_FAIL("getDataPath fail");
    }
    m_memoryDisk = m_configuration.memoryDiskPath();
    if (m_memoryDisk.empty()) {
        m_memoryDisk = names::defaultMemoryDisk(m_dataPath);
        m_configuration.setMemoryDiskPath(m_memoryDisk);
    }
    m_urlStatRoot = m_configuration.urlStatRoot();
    if (m_urlStatRoot.empty()) {
        m_urlStatRoot = names::defaultStatRoot(m_dataPath);
        m_configuration.setUrlStatRoot(m_urlStatRoot);
    }
    // Before anything is made: a directory refused is left as it was.
    if (!mayBeUrlStatRoot(m_urlStatRoot, m_dataPath) ||
        !mayBeMemoryDisk(m_memoryDisk, m_dataPath, m_urlStatRoot) ||
        !leavesRoomForNames(m_memoryDisk, m_urlStatRoot)) {
        return -1;
    }
    // Nothing is deleted from either before both are locked.
    if (createIfMissing(m_memoryDisk) != 0 || createIfMissing(m_urlStatRoot) != 0 ||
        lockDirectory(m_urlStatRoot, names::lockFile(m_urlStatRoot), m_rootLock) != 0 ||
        lockDirectory(m_memoryDisk, memoryDiskMarker(m_memoryDisk), m_memoryDiskLock) != 0) {
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
    if (!holdsOnlySpillFiles(m_memoryDisk) || emptyMemoryDisk(m_memoryDisk) != 0) {
        return -1;
    }
    for (const std::string& account : m_accounts) {
        const std::string directory = names::accountDir(m_urlStatRoot, names::accountOf(account));
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

// The marker goes while it is locked, so that it is not the one that another instance has locked.
// Some systems keep its name until the lock is let go, and the directory until then. Where either
// cannot be removed (a mount point, say) it stays for the next start.
void WorkThread::removeMemoryDisk() {
    (void)platform().removeFile(memoryDiskMarker(m_memoryDisk));
    m_memoryDiskLock.reset();
    (void)platform().removeDirectory(m_memoryDisk);
}

int WorkThread::removeDeletedAccount() {
    return sweepDirectory(m_urlStatRoot, KESTRINE_HERE);
}

int WorkThread::removeDeletedDate() {
    int result = 0;
    for (const std::string& account : m_accounts) {
        const std::string directory = names::accountDir(m_urlStatRoot, names::accountOf(account));
        if (sweepDirectory(directory, KESTRINE_HERE) != 0) {
            result = -1;
        }
    }
    return result;
}

} // namespace kestrine
