// Accounts (getAllAccounts):
//  1. "config/syncaccount.dat" lies in the executable's directory; without it there is no account.
//  2. Each record names one account; its path is the data path directly followed by the name, which
//     begins with its separator.
//  3. Two accounts whose directories in the statistics tree would be one and the same would count
//     into each other's files, so the second one is left out.
//
// One account (getAllNews): devices ascending; of each device its dates; of each date its types;
// `haveNewData` decides for each type directory.
#include "input/abstract_new_data.h"

#include "frame/data_path.h"
#include "frame/log.h"
#include "frame/text.h"
#include "input/account_file.h"
#include "platform/platform.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace kestrine {

namespace {

constexpr std::string_view g_types = "A";
constexpr int32_t g_firstDate = 20000001;
constexpr int32_t g_lastDate = 21111110;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isDateName(const std::string& name) {
    if (name.size() != 8 || !isDigit(name.front()) || !isDigit(name.back())) {
        return false;
    }
    // The leading digits only: a letter among the eight makes a number below the first date.
    const int32_t date = names::getDateOfPath(name);
    return date >= g_firstDate && date <= g_lastDate;
}

bool isNotFound(uint32_t error) {
    return error == g_errorFileNotFound || error == g_errorPathNotFound;
}

struct FileNameLess {
    bool operator()(const std::string& a, const std::string& b) const {
        return platform().compareFileNames(a, b) < 0;
    }
};
// Account paths by the names of their directories.
using AccountNames = std::map<std::string, std::string, FileNameLess>;

// True when the account may have a directory of its own beside those that are taken; it takes one.
bool isUsable(const std::string& dataPath, const std::string& account, AccountNames& taken) {
    const std::string name = names::accountOf(account);
    // Without a name of its own the account would be the log data itself.
    const bool named = account.find_first_not_of('/', dataPath.size()) != std::string::npos;
    if (!named || name.empty() || !platform().isPlainPath(name)) {
        LOG_ERROR("account %s has no usable directory name, left out", account.c_str());
        return false;
    }
    if (const auto [other, added] = taken.emplace(name, account); !added) {
        LOG_ERROR("account %s has the same directory name as %s, left out", account.c_str(),
                  other->second.c_str());
        return false;
    }
    return true;
}

} // namespace

int AbstractNewData::haveNewData(const std::string&) {
    return LOG_FAIL("should not run here");
}

int AbstractNewData::getAccountFilePath(std::string& path) {
    const std::string executable = platform().executablePath();
    if (executable.empty()) {
        return LOG_FAIL("GetModuleFileName fail, errcode %u", platform().lastError());
    }
    const size_t end = executable.find_last_of("/\\");
    if (end == std::string::npos) {
        return LOG_FAIL("%s invalid", executable.c_str());
    }
    path = executable.substr(0, end + 1) + "config/syncaccount.dat";
    return 0;
}

int AbstractNewData::getAllAccounts(std::vector<std::string>& accounts) {
    accounts.clear();
    std::string path;
    if (getAccountFilePath(path) != 0) {
        return -1;
    }
    // No failure: the logging product writes it with its first account, which is waited for.
    if (!platform().exists(path)) {
        LOG_INFO("Account Record File Path(%s) not exist", path.c_str());
        return 0;
    }
    CMlAccountFile file(path);
    if (file.loadAddRecords() != 0) {
        return LOG_FAIL("loadAddRecords fail %s", path.c_str());
    }
    std::string dataPath;
    if (getDataPath(dataPath) != 0) {
        return LOG_FAIL("getDatPath fail");
    }
    AccountNames taken;
    for (const AccountRecord& record : file.records()) {
        std::string account = dataPath + std::string(record.accountName());
        Util::replaceChar(account, '\\', '/');
        if (isUsable(dataPath, account, taken)) {
            accounts.push_back(std::move(account));
        }
    }
    return 0;
}

int AbstractNewData::getAllNews(const std::string& accountPath) {
    m_newNodes.clear();
    std::vector<std::string> devices;
    if (getAllDevice(accountPath, &devices) != 0) {
        return LOG_FAIL("getAllDevice %s %s fail", accountPath.c_str(),
                        names::g_devicePrefix.data());
    }
    for (const std::string& device : devices) {
        if (getAllTypes(device) != 0) {
            return LOG_FAIL("getAllDates for %s %s fail", accountPath.c_str(), device.c_str());
        }
        std::sort(m_newNodes.begin(), m_newNodes.end());
    }
    return 0;
}

int AbstractNewData::getAllDevice(const std::string& accountPath,
                                  std::vector<std::string>* devices) {
    if (devices == nullptr) {
        return LOG_FAIL("praram invalid");
    }
    devices->clear();
    std::vector<FindEntry> entries;
    FindStep step = FindStep::First;
    const std::string pattern = names::join(accountPath, std::string(names::g_devicePrefix) + "*");
    if (platform().find(pattern, entries, step) != 0) {
        // At a later step the listing broke off, and devices would be missing from it.
        if (step == FindStep::First && isNotFound(platform().lastError())) {
            LOG_INFO("cannot find any device in %s", accountPath.c_str());
            return 0;
        }
        return LOG_FAIL("FindFirstFile fail, errcode %u", platform().lastError());
    }
    for (const FindEntry& entry : entries) {
        // The pattern may match other letter cases too.
        if (Util::isDirectory(entry) && entry.name.starts_with(names::g_devicePrefix)) {
            devices->push_back(names::join(accountPath, entry.name));
        }
    }
    std::sort(devices->begin(), devices->end());
    return 0;
}

int AbstractNewData::getAllTypes(const std::string& devicePath) {
    std::vector<FindEntry> entries;
    FindStep step = FindStep::First;
    if (platform().find(names::join(devicePath, "*"), entries, step) != 0) {
        if (step == FindStep::First && isNotFound(platform().lastError())) {
            LOG_INFO("cannot find any types in %s", devicePath.c_str());
            return 0;
        }
        return LOG_FAIL("FindFirstFile fail %s, errcode %u", devicePath.c_str(),
                        platform().lastError());
    }
    for (const FindEntry& entry : entries) {
        if (Util::isDirectory(entry) && tryInsert(devicePath, entry.name) != 0) {
            return -1;
        }
    }
    return 0;
}

int AbstractNewData::tryInsert(const std::string& devicePath, const std::string& name) {
    if (!isDateName(name)) {
        return 0;
    }
    for (const char type : g_types) {
        if (tryInsertOneType(devicePath, name, type) != 0) {
            return LOG_FAIL("try insert %s\\%s\\%c fail", devicePath.c_str(), name.c_str(), type);
        }
    }
    return 0;
}

int AbstractNewData::tryInsertOneType(const std::string& devicePath, const std::string& date,
                                      char type) {
    std::string nodePath = names::join(names::join(devicePath, date), std::string(1, type));
    FileInfo info;
    // A date without this type holds nothing; one that goes away meanwhile is no failure either.
    if (platform().info(nodePath, info) != 0 || !info.isDirectory) {
        return 0;
    }
    const int result = haveNewData(nodePath);
    if (result < 0) {
        return LOG_FAIL("haveNewData %s fail", nodePath.c_str());
    }
    if (result == 1) {
        m_newNodes.push_back(std::move(nodePath));
    }
    return 0;
}

} // namespace kestrine
