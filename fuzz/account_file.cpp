// The account file in both layouts, and the accounts that the service makes of it.
//
//   input   bits 0, 1  form: 0, 1 the file's bytes as they are
//   byte 0                   2, 3 names, put into a file of the current or the older layout
//   rest    bytes, or names of the length in front of each
#include "harness/fuzz_platform.h"
#include "harness/target.h"

#include "frame/tree_names.h"
#include "input/abstract_new_data.h"
#include "input/account_file.h"
#include "worldgen/install.h"

#include <set>

namespace kestrine::fuzz {

namespace {

constexpr const char* g_program = "/opt/product/ml/kestrine";
constexpr const char* g_file = "/opt/product/ml/config/syncaccount.dat";
constexpr const char* g_dataPathFile = "/opt/product/mysql_path.ini";
constexpr const char* g_data = "/data/log_data";
constexpr size_t g_headerSize = 16;
constexpr size_t g_nameOffset = 40;
constexpr size_t g_nameSize = 36;
constexpr int32_t g_mostNames = 20;

// The writer's file of the largest number of accounts, made once.
const std::string& fullFile(bool older) {
    static const std::vector<std::string> names(g_mostNames, "\\a");
    static const std::string all[] = {worldgen::accountFileBytes(names, false),
                                      worldgen::accountFileBytes(names, true)};
    return all[older ? 1 : 0];
}

// The front of it, with the names of the input written over.
Bytes fileOf(InputReader& input, bool older) {
    const size_t size = older ? AccountRecord::g_olderSize : AccountRecord::g_size;
    const ByteView whole = asBytes(fullFile(older));
    Bytes file(whole.begin(), whole.begin() + g_headerSize);
    int32_t count = 0;
    for (; !input.empty() && count < g_mostNames; ++count) {
        const ByteView name = input.take(input.byte() % (g_nameSize + 1));
        const ByteView record = whole.subspan(file.size(), size);
        const auto field = static_cast<ptrdiff_t>(file.size() + g_nameOffset);
        file.insert(file.end(), record.begin(), record.end());
        std::copy(name.begin(), name.end(), file.begin() + field);
    }
    storeLittle(file.data() + 4, count);
    return file;
}

void checkRecords(const CMlAccountFile& accounts, size_t fileSize) {
    const size_t size = accounts.version() == CMlAccountFile::g_version
                            ? AccountRecord::g_size
                            : AccountRecord::g_olderSize;
    require(accounts.records().empty() ||
                g_headerSize + accounts.records().size() * size <= fileSize,
            "no more records than the file holds");
    for (const AccountRecord& record : accounts.records()) {
        const std::string name(record.accountName());
        require(name.size() <= g_nameSize && name.find('\0') == std::string::npos,
                "a name ends with its field or a zero");
    }
}

void load() {
    const Bytes before = disk().content(g_file);
    CMlAccountFile accounts(g_file);
    const int result = accounts.loadAddRecords();
    require(result == 0 || result == CMlAccountFile::g_headerUnreadable ||
                result == CMlAccountFile::g_magicUnknown ||
                result == CMlAccountFile::g_recordUnreadable,
            "a known result");
    checkRecords(accounts, before.size());
    const bool rewritten = result == 0 && accounts.version() == CMlAccountFile::g_olderVersion;
    require(rewritten || disk().content(g_file) == before, "only the older layout is rewritten");
    if (!rewritten) {
        return;
    }
    CMlAccountFile again(g_file);
    require(again.loadAddRecords() == 0 && again.version() == CMlAccountFile::g_version,
            "rewritten in the current layout");
    require(std::equal(accounts.records().begin(), accounts.records().end(),
                       again.records().begin(), again.records().end(),
                       [](const auto& a, const auto& b) { return a.bytes == b.bytes; }),
            "with the same records");
}

// Whatever the names, every account has a directory of its own in the statistics tree.
void checkAccounts() {
    const std::string dataPath = "[mysql]\nlogdatapath=/data\n";
    disk().put(g_dataPathFile, asBytes(dataPath));
    disk().executable = g_program;
    std::vector<std::string> accounts;
    const int result = AbstractNewData::getAllAccounts(accounts);
    disk().executable.clear();
    require(result == 0 || accounts.empty(), "a failure gives no account");
    std::set<std::string> directories;
    for (const std::string& account : accounts) {
        require(account.starts_with(g_data), "below the data path");
        const std::string name = names::accountOf(account);
        require(!name.empty() && name != "." && name != ".." &&
                    name.find_first_of("/\\") == std::string::npos,
                "a usable directory name");
        require(directories.insert(name).second, "of its own");
    }
}

} // namespace

void runInput(ByteView bytes) {
    InputReader input(bytes);
    const uint8_t form = input.byte() & 3;
    const ByteView rest = input.takeAll();
    InputReader names(rest);
    disk().put(g_file, form >= 2 ? fileOf(names, form == 3) : Bytes(rest.begin(), rest.end()));
    load();
    checkAccounts();
}

std::vector<std::string> makeSeeds() {
    std::vector<std::string> seeds;
    for (const bool older : {false, true}) {
        seeds.push_back(std::string(1, '\0') + worldgen::accountFileBytes({"\\a", "\\b"}, older));
        std::string names;
        for (const std::string name : {"\\alice", "\\b\\c", "\\..", "/alice", "", "\\", "\\x/",
                                       "\\0123456789012345678901234567890123"}) {
            names += static_cast<char>(name.size()) + name;
        }
        seeds.push_back((older ? "\3" : "\2") + names);
    }
    return seeds;
}

} // namespace kestrine::fuzz
