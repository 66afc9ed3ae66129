// The service's main loop, run on the main thread.
#pragma once

#include "cycle/url_stat.h"
#include "frame/configuration.h"
#include "service/working_directories.h"

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kestrine {

class WorkThread {
public:
    // Gives the settings the default roots where they name none.
    explicit WorkThread(Configuration& configuration) : m_configuration(configuration) {}

    // Fixes the data path, the memory-disk directory and the statistics root, both of which it
    // locks against other instances, tells the supervisor that the service is ready, and reads the
    // account list, waiting until there is an account.
    // 0, also after a stop request, or -1.
    [[nodiscard]] int init();
    // Removes temporary directories, checks every account's tree, and then makes pass after pass
    // until a stop is requested. An account that fails ends the service, but only after the others
    // had their run of that pass; one whose tree could not be checked has none. 0 after a stop, -1
    // on failure; from the first pass on, temporary directories are removed on every way out, and
    // the memory disk with them.
    [[nodiscard]] int run();

    // One `UrlStat` per account of the current list. 0 or -1.
    [[nodiscard]] int reinit();
    // Deletes what lies on the memory disk, except the marker, which is locked, and every account's
    // directory of disk temporary files.
    [[nodiscard]] int removeTempFiles();
    // Sweep entries "_delete_*" of the statistics root, and of each account's directory. 0 or -1.
    [[nodiscard]] int removeDeletedAccount();
    [[nodiscard]] int removeDeletedDate();

private:
    [[nodiscard]] int waitForAccounts();
    void checkAccounts(const std::vector<std::string>& accounts);
    [[nodiscard]] int runLoop();
    [[nodiscard]] int accountCheckIfDue();
    [[nodiscard]] int checkAccountChange();
    [[nodiscard]] int runAccounts();
    void pause();

    Configuration& m_configuration;
    WorkingDirectories m_directories;
    std::vector<std::string> m_accounts; // account paths, as last read
    std::vector<std::unique_ptr<UrlStat>> m_urlStats;
    std::set<std::string> m_failed; // accounts whose tree could not be checked
    bool m_checkedBefore = false;
    uint32_t m_lastCheck = 0; // tick of the last account check
};

} // namespace kestrine
