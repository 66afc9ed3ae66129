// The directories that the service works in: fixed at start, swept and cleared while it runs.
#include "frame/data_path.h"
#include "frame/log.h"
#include "platform/platform.h"
#include "service/directory_guard.h"
#include "service/work_thread.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

namespace kestrine {

namespace {

constexpr std::string_view g_deletedPattern = "/_delete_*";

int createIfMissing(const std::string& path) {
    if (Util::createDir(path.ends_with('/') ? path : path + "/") != 0) {
        return LOG_FAIL("create %s fail", path.c_str());
    }
    return 0;
}

// Removes the entries "_delete_*" of a directory.
int sweepDirectory(const std::string& directory, const CodePlace& where) {
    const std::string pattern = directory + std::string(g_deletedPattern);
    std::vector<FindEntry> entries;
    if (Util::listEntries(pattern, entries, where) != 0) {
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
    if (!mayBeUrlStatRoot(m_urlStatRoot, m_dataPath) ||
        !mayBeMemoryDisk(m_memoryDisk, m_dataPath, m_urlStatRoot) ||
        !leavesRoomForNames(m_memoryDisk, m_urlStatRoot)) {
        return -1;
    }
    if (makeMemoryDisk() != 0 || createIfMissing(m_urlStatRoot) != 0 || lockRoot() != 0) {
        return -1;
    }
    if (waitForAccounts() != 0) {
        return -1;
    }
    if (reinit() != 0) {
        return LOG_FAIL("init fail");
    }
    return 0;
}

int WorkThread::makeMemoryDisk() const {
    const bool made = !platform().exists(m_memoryDisk);
    if (createIfMissing(m_memoryDisk) != 0) {
        return -1;
    }
    const std::string marker = names::join(m_memoryDisk, g_memoryDiskMarker);
    if (made && platform().open(marker, OpenMode::Truncate) == nullptr) {
        LOG_INFO("mark %s fail, errno %d", m_memoryDisk.c_str(), errno);
    }
    return 0;
}

// The machine-wide name does not reach other containers and other machines, which may see the same
// statistics.
int WorkThread::lockRoot() {
    const std::string path = names::lockFile(m_urlStatRoot);
    switch (platform().lockFile(path, m_lock)) {
    case LockResult::Locked:
        return 0;
    case LockResult::HeldByAnother:
        return LOG_FAIL("another instance is running on %s", m_urlStatRoot.c_str());
    case LockResult::NotSupported:
        LOG_INFO("no locks on the volume of %s, errno %d", m_urlStatRoot.c_str(), errno);
        return 0;
    case LockResult::Failed:
        break;
    }
    return LOG_FAIL("lock %s fail, errno %d", path.c_str(), errno);
}

int WorkThread::removeTempFiles() {
    if (m_configuration.memoryDiskPath().empty()) {
        LOG_INFO("empty memory disk path, return");
        return 0;
    }
    const auto remove = [](const std::string& path, LogLevel level) {
        const std::string command = "rmdir /S /Q \"" + path + "\"";
        LOG_DEBUG("command %s", command.c_str());
        if (platform().removeTree(command, path) == 0 || errno == ENOENT) {
            return 0;
        }
        logMessage(level, KESTRINE_HERE, "system %s fail, errno %d", command.c_str(), errno);
        return -1;
    };
    if (!holdsOnlySpillFiles(m_configuration.memoryDiskPath()) ||
        remove(m_configuration.memoryDiskPath(), LogLevel::Error) != 0) {
        return -1;
    }
    for (const std::string& account : m_accounts) {
        const std::string directory = names::accountDir(m_urlStatRoot, names::accountOf(account));
        (void)remove(names::diskTempTree(directory), LogLevel::Info);
    }
    return 0;
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
