// The account file in both layouts, and the accounts that the service makes of it.
#include "input/account_file.h"
#include "harness/fuzz_platform.h"
#include "input/abstract_new_data.h"
#include "tree/names.h"
#include "worldgen/install.h"

#include <set>

namespace kestrine::fuzz {

namespace {

constexpr const char* g_file = "/opt/product/ml/config/syncaccount.dat";
constexpr size_t g_headerSize = 16;
constexpr size_t g_nameSize = 36;

void load() {
    const Bytes before = disk().content(g_file);
    CMlAccountFile accounts(g_file);
    const int result = accounts.loadAddRecords();
    const bool current = accounts.version() == CMlAccountFile::g_version;
    const size_t size = current ? AccountRecord::g_size : AccountRecord::g_olderSize;
    require(accounts.records().empty() ||
                g_headerSize + accounts.records().size() * size <= before.size(),
            "no more records than the file holds");
    for (const AccountRecord& record : accounts.records()) {
        const std::string name(record.accountName());
        require(name.size() <= g_nameSize, "a name ends with its field");
    }
    if (result != 0 || accounts.version() != CMlAccountFile::g_olderVersion) {
        require(disk().content(g_file) == before, "only the older layout is rewritten");
        return;
    }
    CMlAccountFile again(g_file);
    require(again.loadAddRecords() == 0 && again.version() == CMlAccountFile::g_version,
            "rewritten in the current layout");
    require(std::ranges::equal(accounts.records(), again.records(), {}, &AccountRecord::bytes,
                               &AccountRecord::bytes),
            "with the same records");
}

// Whatever the names, every account has a directory of its own in the statistics tree.
void checkAccounts() {
    disk().put("/opt/product/mysql_path.ini", asBytes("[mysql]\nlogdatapath=/data\n"));
    disk().executable = "/opt/product/ml/kestrine";
    std::vector<std::string> accounts;
    const int result = AbstractNewData::getAllAccounts(accounts);
    disk().executable.clear();
    require(result == 0 || accounts.empty(), "a failure gives no account");
    std::set<std::string> directories;
    for (const std::string& account : accounts) {
        require(account.starts_with("/data/log_data"), "below the data path");
        const std::string name = names::accountOf(account);
        require(!name.empty() && name != "." && name != ".." &&
                    name.find_first_of("/\\") == std::string::npos,
                "a usable directory name");
        require(directories.insert(name).second, "of its own");
    }
}

} // namespace

void runInput(ByteView bytes) {
    disk().put(g_file, bytes);
    load();
    checkAccounts();
}

std::vector<std::string> makeSeeds() {
    const std::vector<std::string> names = {"\\alice",
                                            "\\b\\c",
                                            "\\..",
                                            "/alice",
                                            "\\",
                                            "\\x/",
                                            "\\0123456789012345678901234567890123"};
    return {worldgen::accountFileBytes(names, false), worldgen::accountFileBytes(names, true)};
}

} // namespace kestrine::fuzz
