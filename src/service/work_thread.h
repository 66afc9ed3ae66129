// The service's main loop, run on the main thread.
#pragma once

#include "cycle/url_stat.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrine {

class WorkThread {
public:
    // Fixes the data path, the memory-disk directory and the statistics root, and reads the account
    // list, waiting until there is an account. 0 or -1.
    [[nodiscard]] int init();
    // Removes temporary directories, checks every account's tree, and then makes pass after pass
    // until a stop is requested. 0 after a stop, -1 on failure; from the first pass on, temporary
    // directories are removed on every way out.
    [[nodiscard]] int run();

    // One `UrlStat` per account of the current list. 0 or -1.
    [[nodiscard]] int reinit();
    // Deletes the memory-disk directory and every account's directory of disk temporary files.
    [[nodiscard]] int removeTempFiles();
    // Sweep entries "_delete_*" of the statistics root, and of each account's directory. 0 or -1.
    [[nodiscard]] int removeDeletedAccount();
    [[nodiscard]] int removeDeletedDate();

private:
    [[nodiscard]] int waitForAccounts();
    [[nodiscard]] int checkAccounts(const std::vector<std::string>& accounts);
    [[nodiscard]] int runLoop();
    [[nodiscard]] int accountCheckIfDue();
    [[nodiscard]] int checkAccountChange();
    [[nodiscard]] int runAccounts();
    void pause();

    std::vector<std::string> m_accounts; // account paths, as last read
    std::vector<std::unique_ptr<UrlStat>> m_urlStats;
    std::string m_dataPath;
    std::string m_urlStatRoot;
    std::string m_memoryDisk;
    bool m_checkedBefore = false;
    uint32_t m_lastCheck = 0; // tick of the last account check
    int32_t m_sleepTime = 0;  // seconds
};

// True for a directory that must not serve as the memory disk, which is deleted with all it holds:
// a root of a volume, or one of the given directories or a parent of one. A volume that is mounted
// in some directory may serve, as long as there is nothing on it but spill files.
[[nodiscard]] bool isUnsafeMemoryDisk(const std::string& memoryDisk, const std::string& dataPath,
                                      const std::string& urlStatRoot);

} // namespace kestrine
