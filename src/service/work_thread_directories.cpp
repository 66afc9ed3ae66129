// The directories that the service works in: fixed at start, swept and cleared while it runs.
#include "frame/configuration.h"
#include "frame/data_path.h"
#include "frame/log.h"
#include "platform/platform.h"
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
    const std::string whole = path.ends_with('/') ? path : path + "/";
    if (!platform().exists(path) && Util::createDir(whole) != 0) {
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
        if (!platform().exists(path)) {
            continue;
        }
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

// "/", "X:/", "//server/share".
bool isNameOfVolume(std::string_view path) {
    const std::string_view name = path.substr(0, path.find_last_not_of('/') + 1);
    return name.empty() || name.ends_with(':') || name.starts_with("//");
}

// Nothing but ACCOUNT/DATE directories, if anything, as a killed service leaves them.
bool holdsOnlySpillFiles(const std::string& directory) {
    std::vector<FindEntry> accounts;
    if (Util::listEntries(names::join(directory, "*"), accounts, KESTRINE_HERE) != 0) {
        return false;
    }
    return std::ranges::all_of(accounts, [&directory](const FindEntry& account) {
        std::vector<FindEntry> dates;
        const std::string pattern = names::join(names::join(directory, account.name), "*");
        return Util::isDirectory(account) && !account.name.starts_with('.') &&
               Util::listEntries(pattern, dates, KESTRINE_HERE) == 0 &&
               std::ranges::all_of(dates, [](const FindEntry& date) {
                   Period period = Period::Week;
                   return Util::isDirectory(date) && names::parsePeriodDir(date.name, period) &&
                          period == Period::Day;
               });
    });
}

// A volume may be mounted for the purpose.
bool isUnsafeVolume(const std::string& path) {
    return platform().isVolumeRoot(path) && (isNameOfVolume(path) || !holdsOnlySpillFiles(path));
}

} // namespace

bool isUnsafeMemoryDisk(const std::string& memoryDisk, const std::string& dataPath,
                        const std::string& urlStatRoot) {
    const std::string path = platform().resolvedPath(memoryDisk);
    return path.empty() || isUnsafeVolume(path) ||
           names::liesBelow(platform().resolvedPath(dataPath), path) ||
           names::liesBelow(platform().resolvedPath(urlStatRoot), path);
}

int WorkThread::init() {
    if (getDataPath(m_dataPath) != 0) {
        return LOG_FAIL("getDataPath fail");
    }
    Configuration* configuration = nullptr;
    if (Configuration::getInstance(&configuration) != 0) {
        return LOG_FAIL("Configuration::getInstance fail");
    }
    m_memoryDisk = configuration->memoryDiskPath();
    if (m_memoryDisk.empty()) {
        m_memoryDisk = m_dataPath + "/_memdisk";
        configuration->setMemoryDiskPath(m_memoryDisk);
    }
    m_urlStatRoot = configuration->urlStatRoot();
    if (m_urlStatRoot.empty()) {
        m_urlStatRoot = m_dataPath + "/_urlstat";
        configuration->setUrlStatRoot(m_urlStatRoot);
    }
    if (isUnsafeMemoryDisk(m_memoryDisk, m_dataPath, m_urlStatRoot)) {
        return LOG_FAIL(
            "memory disk %s is the root of a volume or holds the log data or the statistics, "
            "refused because it is deleted with all it holds",
            m_memoryDisk.c_str());
    }
    if (createIfMissing(m_memoryDisk) != 0 || createIfMissing(m_urlStatRoot) != 0) {
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

int WorkThread::removeTempFiles() {
    Configuration* configuration = nullptr;
    if (Configuration::getInstance(&configuration) != 0) {
        return LOG_FAIL("Configuration::getInstance fail");
    }
    if (configuration->memoryDiskPath().empty()) {
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
    if (remove(configuration->memoryDiskPath(), LogLevel::Error) != 0) {
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
