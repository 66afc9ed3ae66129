#include "service/work_thread.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/supervision.h"
#include "frame/ticks.h"
#include "input/abstract_new_data.h"
#include "platform/platform.h"
#include "recovery/exception_check.h"

#include <algorithm>
#include <cerrno>
#include <new>

namespace kestrine {

namespace {

constexpr uint32_t g_accountCheckInterval = 3600000; // ms
constexpr uint32_t g_accountWait = 60000;            // ms between two looks for a first account
constexpr uint32_t g_accountStep = 500;              // ms within which a stop is noticed
constexpr int64_t g_pauseStep = 500;                 // ms
constexpr int64_t g_pauseReport = 1000000;           // ms

} // namespace

int WorkThread::run() {
    // First of all: what a killed pass has left is not counted, and its positions have not moved.
    if (removeTempFiles() != 0) {
        return LOG_FAIL("removeTempFiles fail");
    }
    checkAccounts(m_accounts);
    // Also after a failed pass its temporary files are of no more use, so the result waits.
    const int result = runLoop();
    if (removeTempFiles() != 0) {
        return LOG_FAIL("removeTempFiles fail");
    }
    m_directories.removeMemoryDisk();
    return result;
}

// The start-up check: nothing is merged over a tree that could not be repaired.
void WorkThread::checkAccounts(const std::vector<std::string>& accounts) {
    for (const std::string& account : accounts) {
        (void)tellStatus("checking the statistics of " + account);
        ExceptionCheck exceptionCheck(m_configuration);
        if (exceptionCheck.check(account) != 0) {
            LOG_ERROR("ExceptionCheck::check %s fail", account.c_str());
            // Until the next start, which checks it again.
            m_failed.insert(account);
        }
    }
}

int WorkThread::runLoop() {
    while (!stopRequested()) {
        if (accountCheckIfDue() != 0 || runAccounts() != 0) {
            return -1;
        }
        if (!stopRequested()) {
            pause();
        }
    }
    return 0;
}

int WorkThread::accountCheckIfDue() {
    const uint32_t now = platform().tickCount();
    if (m_checkedBefore && elapsedTicks(m_lastCheck, now) <= g_accountCheckInterval) {
        return 0;
    }
    LOG_INFO("%ds elasped, check account change", 3600);
    // Nothing rests on the sweeps: what stays is tried again in an hour.
    if (removeDeletedAccount() != 0) {
        LOG_ERROR("removeDeletedAccount fail, but ignore");
    }
    if (removeDeletedDate() != 0) {
        LOG_ERROR("removeDeletedDate fail, but ignore");
    }
    m_checkedBefore = true;
    m_lastCheck = now;
    return checkAccountChange();
}

int WorkThread::checkAccountChange() {
    std::vector<std::string> accounts;
    if (AbstractNewData::getAllAccounts(accounts) != 0) {
        return LOG_FAIL("getAccounts fail");
    }
    if (accounts == m_accounts) {
        return 0;
    }
    const std::set<std::string> known(m_accounts.begin(), m_accounts.end());
    std::vector<std::string> added;
    std::ranges::copy_if(accounts, std::back_inserter(added),
                         [&known](const std::string& account) { return !known.contains(account); });
    m_accounts = accounts;
    // A tree may be there from an earlier time, so a new account is checked like one at the start.
    checkAccounts(added);
    if (reinit() != 0) {
        return LOG_FAIL("reinit fail");
    }
    return 0;
}

int WorkThread::runAccounts() {
    // An account that cannot be worked on ends the service, but only after all others had their
    // pass.
    int result = m_failed.empty() ? 0 : -1;
    for (size_t i = 0; i < m_urlStats.size() && !stopRequested(); ++i) {
        (void)tellStatus("counting the visits of " + m_accounts[i]);
        if (!m_failed.contains(m_accounts[i]) && m_urlStats[i]->run(m_accounts[i]) != 0) {
            result = LOG_FAIL("run account %s fail", m_accounts[i].c_str());
        }
    }
    return result;
}

void WorkThread::pause() {
    (void)tellStatus("waiting for new data");
    for (int64_t counter = 0;
         counter <= int64_t{m_configuration.sleepTime()} * 1000 && !stopRequested();
         counter += g_pauseStep) {
        if (counter % g_pauseReport == 0) {
            LOG_DEBUG("%ds elapsed, wait to find new data", static_cast<int>(counter / 1000));
        }
        platform().sleep(static_cast<uint32_t>(g_pauseStep));
    }
}

int WorkThread::waitForAccounts() {
    for (int tries = 0;; ++tries) {
        m_accounts.clear();
        if (AbstractNewData::getAllAccounts(m_accounts) != 0) {
            return LOG_FAIL("getAccounts fail");
        }
        if (!m_accounts.empty()) {
            return 0;
        }
        // Once an hour.
        if (tries % 60 == 0) {
            (void)tellStatus("waiting for a first account");
            LOG_INFO("account size is 0");
        }
        for (uint32_t waited = 0; waited < g_accountWait; waited += g_accountStep) {
            if (stopRequested()) {
                return 0;
            }
            platform().sleep(g_accountStep);
        }
    }
}

int WorkThread::reinit() {
    LOG_INFO("account changed, reinit");
    // Made anew for all, in the order of m_accounts, which is how `runAccounts` pairs them;
    // intervals begin anew as well.
    m_urlStats.clear();
    if (m_accounts.empty()) {
        LOG_DEBUG("account number is 0");
        return 0;
    }
    for (const std::string& account : m_accounts) {
        m_urlStats.emplace_back(new (std::nothrow) UrlStat(m_configuration));
        if (!m_urlStats.back()) {
            return LOG_FAIL("new UrlStat [] fail errno %d", errno);
        }
        if (m_urlStats.back()->init() != 0) {
            return LOG_FAIL("init for %s fail", account.c_str());
        }
    }
    return 0;
}

} // namespace kestrine
