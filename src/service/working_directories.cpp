#include "service/working_directories.h"

#include "frame/data_path.h"
#include "frame/log.h"
#include "service/directory_guard.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <cerrno>

namespace kestrine {

namespace {

int createIfMissing(const std::string& path) {
    if (Util::createDir(path.ends_with('/') ? path : path + "/") != 0) {
        return LOG_FAIL("create %s fail", path.c_str());
    }
    return 0;
}

// The machine-wide name does not reach other containers and other machines, which may see the same
// directories.
LockResult lockDirectory(const std::string& directory, const std::string& lockFile,
                         WorkingDirectories::Use use, std::unique_ptr<NamedEvent>& lock) {
    const bool alone = use == WorkingDirectories::Use::Alone;
    const LockResult result =
        alone ? platform().lockFile(lockFile, lock) : platform().lockFileShared(lockFile, lock);
    switch (result) {
    case LockResult::Locked:
        break;
    case LockResult::HeldByAnother:
        LOG_ERROR("another instance is running on %s", directory.c_str());
        break;
    case LockResult::NotSupported:
        if (alone) {
            LOG_INFO("no locks on the volume of %s, errno %d", directory.c_str(), errno);
            return LockResult::Locked;
        }
        LOG_ERROR("no locks on the volume of %s, errno %d", directory.c_str(), errno);
        break;
    case LockResult::Failed:
        LOG_ERROR("lock %s fail, errno %d", lockFile.c_str(), errno);
        break;
    }
    return result;
}

} // namespace

int WorkingDirectories::fix(Configuration& configuration) {
    if (getDataPath(m_dataPath) != 0) {
        return LOG_FAIL("getDataPath fail");
    }
    m_memoryDisk = configuration.memoryDiskPath();
    if (m_memoryDisk.empty()) {
        m_memoryDisk = names::defaultMemoryDisk(m_dataPath);
        configuration.setMemoryDiskPath(m_memoryDisk);
    }
    m_urlStatRoot = configuration.urlStatRoot();
    if (m_urlStatRoot.empty()) {
        m_urlStatRoot = names::defaultStatRoot(m_dataPath);
        configuration.setUrlStatRoot(m_urlStatRoot);
    }
    // Before anything is made: a directory refused is left as it was.
    return mayBeUrlStatRoot(m_urlStatRoot, m_dataPath) &&
                   mayBeMemoryDisk(m_memoryDisk, m_dataPath, m_urlStatRoot) &&
                   leavesRoomForNames(m_memoryDisk, m_urlStatRoot)
               ? 0
               : -1;
}

LockResult WorkingDirectories::lock(Use use) {
    if (createIfMissing(m_memoryDisk) != 0 || createIfMissing(m_urlStatRoot) != 0) {
        return LockResult::Failed;
    }
    const LockResult root =
        lockDirectory(m_urlStatRoot, names::lockFile(m_urlStatRoot), use, m_rootLock);
    return root != LockResult::Locked
               ? root
               : lockDirectory(m_memoryDisk, memoryDiskMarker(m_memoryDisk), use, m_memoryDiskLock);
}

// The marker goes while it is locked, so that it is not the one that another instance has locked.
// Some systems keep its name until the lock is let go, and the directory until then. Where either
// cannot be removed (a mount point, say) it stays for the next start.
void WorkingDirectories::removeMemoryDisk() {
    (void)platform().removeFile(memoryDiskMarker(m_memoryDisk));
    m_memoryDiskLock.reset();
    (void)platform().removeDirectory(m_memoryDisk);
}

} // namespace kestrine
