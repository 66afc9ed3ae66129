#include "tree/quarantine.h"

#include "frame/configuration.h"
#include "frame/log.h"
#include "frame/progress.h"
#include "frame/run_flag.h"
#include "frame/text.h"
#include "platform/platform.h"
#include "tree/directories.h"
#include "tree/names.h"
#include "tree/top_list_dirs.h"

#include <cerrno>

namespace kestrine::Util {

namespace {

// Names tried before a quarantine counts as one that cannot be looked into.
constexpr int64_t g_dumpNames = 10000;
constexpr int64_t g_dumpNamesAtOnce = 100; // tried even though a stop was requested
constexpr int g_takenNames = 1000;         // that others may have taken at this moment

// DIRECTORY/SECONDS_NAME, the seconds counted up until nothing of that name is there. Empty when no
// name is free, as it seems where the directory cannot be looked into, and after a stop request.
// `later` seconds are left out.
std::string freeDumpName(const std::string& directory, std::string_view name, int later = 0) {
    const int64_t now = platform().now() + later;
    for (int64_t seconds = now; seconds < now + g_dumpNames; ++seconds) {
        std::string target = names::dumpFile(directory, seconds, name);
        if (!platform().exists(target)) {
            return target;
        }
        if (seconds - now >= g_dumpNamesAtOnce && stopRequested()) {
            break;
        }
    }
    return {};
}

// A name of the quarantine that is this process's alone: another one may set a file of the same
// name aside at the same moment, since all accounts share the directory of a date. Of those who
// make one directory only one succeeds. A kill leaves it, empty.
class TakenName {
public:
    // Empty when there is none.
    [[nodiscard]] const std::string& path() const { return m_path; }

    TakenName(const std::string& directory, std::string_view name) {
        for (int tries = 0; tries < g_takenNames && m_path.empty(); ++tries) {
            const std::string free = freeDumpName(directory, name, tries);
            if (free.empty()) {
                return;
            }
            // On a full volume a file can be set aside all the same.
            if (platform().makeDirectory(names::tempOf(free)) == 0 || errno != EEXIST) {
                m_path = free;
            }
            // It may have been used up between the look and the taking.
            if (!m_path.empty() && platform().exists(m_path)) {
                release();
            }
        }
    }
    ~TakenName() { release(); }
    TakenName(const TakenName&) = delete;
    TakenName& operator=(const TakenName&) = delete;

private:
    void release() {
        if (!m_path.empty()) {
            (void)platform().removeDirectory(names::tempOf(m_path)); // what stays takes one name
        }
        m_path.clear();
    }

    std::string m_path;
};

// What stands where a directory of the quarantine must be gets a name beside it, one that no
// listing takes up. 0 or -1.
int clearWay(const std::string& directory) {
    FileInfo info;
    if (platform().info(directory, info) != 0) {
        return errno == ENOENT || errno == ENOTDIR
                   ? 0
                   : LOG_FAIL("_stati64 fail %s errno %d", directory.c_str(), errno);
    }
    if (info.isDirectory) {
        return 0;
    }
    const std::string to = freeDumpName(std::string(names::parentOf(directory)) + "/",
                                        names::lastComponent(directory));
    if (to.empty() || platform().rename(directory, to) != 0) {
        return LOG_FAIL("rename %s to %s fail, errno %d", directory.c_str(), to.c_str(), errno);
    }
    LOG_ERROR("%s is no directory, moved to %s", directory.c_str(), to.c_str());
    return 0;
}

} // namespace

int dumpBrokenFile(const std::string& path, const std::string& root1, const std::string& root2) {
    const bool below1 = names::liesBelow(path, root1);
    if (!below1 && !names::liesBelow(path, root2)) {
        return LOG_FAIL("cannot find %s or %s in %s", root1.c_str(), root2.c_str(), path.c_str());
    }
    const std::string directory = names::dumpDir(below1 ? root1 : root2, path);
    // From the outside in: below what is no directory nothing can be looked up.
    if (clearWay(std::string(names::parentOf(directory))) != 0 || clearWay(directory) != 0 ||
        createDir(directory) != 0) {
        return LOG_FAIL("create dir %s fail", directory.c_str());
    }
    const TakenName taken(directory, names::lastComponent(path));
    const std::string& to = taken.path();
    if (to.empty()) {
        return LOG_FAIL("no free name for %s in %s", path.c_str(), directory.c_str());
    }
    const std::string target = "\"" + to + "\"";
    // Systems with a command interpreter run it; the others take the two paths.
    std::string command = "move \"" + path + "\" " + target;
    replaceChar(command, '/', '\\');
    LOG_INFO("command %s", command.c_str());
    const LongCall moving; // between file systems the whole file is copied
    if (platform().move(command, path, to) != 0) {
        return LOG_FAIL("system %s fail, errno %d", command.c_str(), errno);
    }
    LOG_INFO("dump %s to %s success ", path.c_str(), target.c_str());
    return 0;
}

int dumpBrokenFile(const std::string& path) {
    Configuration* configuration = nullptr;
    if (Configuration::getInstance(&configuration) != 0) {
        return LOG_FAIL("Configuration::getInstance fail");
    }
    return dumpBrokenFile(path, configuration->urlStatRoot(), configuration->memoryDiskPath());
}

int removeBrokenFile(const std::string& path) {
    LOG_INFO("file %s broken, remove", path.c_str());
    // After a move to quarantine it is gone already.
    if (platform().exists(path) && platform().removeFile(path) != 0) {
        return LOG_FAIL("remove %s fail errno %d", path.c_str(), errno);
    }
    return restoreBackup(path);
}

int restoreBackup(const std::string& formal) {
    const std::string backup = names::backupOf(formal);
    if (!platform().exists(backup)) {
        return 0;
    }
    LOG_INFO("%s exist, rename back", backup.c_str());
    const std::string directory(names::parentOf(formal));
    // Before the rename: a kill in between leaves a file without lists, which are made again, never
    // lists of another file.
    if (deleteTopLists(directory) != 0) {
        return LOG_FAIL("delete top lists of %s fail", directory.c_str());
    }
    if (platform().rename(backup, formal) != 0) {
        return LOG_FAIL("rename %s to %s fail, errno %d", backup.c_str(), formal.c_str(), errno);
    }
    // Synced: merges that follow rest on this file's positions and counters.
    return syncParent(formal);
}

int setAside(const std::string& formal) {
    if (dumpBrokenFile(formal) != 0) {
        return LOG_FAIL("dumpBrokenFile %s fail", formal.c_str());
    }
    // Only what is kept gives way: a file that could not be moved stays where it is.
    return removeBrokenFile(formal);
}

} // namespace kestrine::Util
