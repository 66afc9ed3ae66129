#include "input/abstract_new_data.h"
#include "input/account_file.h"
#include "support/failing_platform.h"
#include "support/temp_dir.h"
#include "worldgen/install.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using test::TempDir;
using worldgen::accountFileBytes;
using Names = std::vector<std::string>;

std::string namesOf(const CMlAccountFile& file) {
    std::string all;
    for (const AccountRecord& record : file.records()) {
        all += record.accountName();
    }
    return all;
}

// Whatever fails while a file in the older layout is rewritten: its accounts are used, and either
// layout is there.
TEST(AccountFile, TheOlderLayoutIsRewritten) {
    const std::string older = accountFileBytes({"\\a", "\\b/c"}, true);
    // The head of the current layout, every byte of the older records, zeros behind.
    std::string current = accountFileBytes({}, false);
    current[4] = 2;
    for (const size_t at : {size_t{16}, size_t{16} + 5278}) {
        current += older.substr(at, 5278) + std::string(5662 - 5278, '\0');
    }
    bool failed = true;
    for (int n = 1; failed; ++n) {
        const TempDir dir;
        CMlAccountFile file(dir.write("acc.dat", older));
        test::FailingPlatform disk(n, test::FailingPlatform::Mode::Once);
        const test::ScopedPlatform scope(disk);
        ASSERT_EQ(file.loadAddRecords(), 0);
        failed = disk.failed();
        EXPECT_EQ(namesOf(file), "\\a\\b/c");
        const std::string left = dir.read("acc.dat");
        EXPECT_TRUE(left == current || (failed && left == older));
        EXPECT_EQ(dir.tree().size(), 1U);
    }
}

TEST(AccountFile, CountAndSizesAreNotTrusted) {
    const size_t whole = 16 + 2 * 5662;
    std::string bytes = accountFileBytes({"\\a", "\\b"}, false);
    bytes.replace(16 + 40, 36, std::string(36, 'n')); // not even a zero behind it
    const TempDir dir;
    CMlAccountFile file(dir / "acc.dat");
    // Count, size of the file, and records that are read; of a whole file 0 is returned.
    const std::tuple<const char*, size_t, size_t, bool> cases[] = {
        {"\2\0\0\0", 15, 0, false},           {"\0\0\0\0", whole, 0, true},
        {"\xFF\xFF\xFF\xFF", whole, 0, true}, {"\1\0\0\0", whole, 1, true},
        {"\2\0\0\0", whole - 1, 1, false},    {"\xFF\xFF\xFF\x7F", whole, 2, false}};
    for (const auto& [count, size, records, good] : cases) {
        dir.write("acc.dat", bytes.replace(4, 4, count, 4).substr(0, size));
        EXPECT_EQ(file.loadAddRecords() == 0, good) << size;
        EXPECT_EQ(file.records().size(), records) << size;
    }
    EXPECT_EQ(namesOf(file), std::string(36, 'n') + "\\b");
    // Neither what has no magic is rewritten, nor an older file that is cut.
    const std::string older = accountFileBytes({"\\a", "\\b"}, true);
    for (const std::string& bad : {std::string(whole, '\0'), older.substr(0, 15),
                                   older.substr(0, 16 + 5278 - 1), older.substr(0, 16 + 5278)}) {
        dir.write("acc.dat", bad);
        EXPECT_NE(file.loadAddRecords(), 0) << bad.size();
        EXPECT_EQ(dir.read("acc.dat"), bad);
        EXPECT_EQ(file.records().size(), bad.size() == 16 + 5278 ? 1U : 0U);
    }
}

TEST(Accounts, PathsInFileOrderWithoutUnusableOnes) {
    const TempDir dir;
    test::FakeClockPlatform machine;
    const test::ScopedPlatform scope(machine);
    machine.executable = dir / "ml/kestrine.exe";
    dir.write("mysql_path.ini", "[mysql]\nlogdatapath=D:\\logs\\\n");
    Names accounts = {"left over"};
    EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), 0); // none yet
    EXPECT_EQ(accounts, Names{});
    const auto load = [&](const std::string& bytes) {
        dir.write("ml/config/syncaccount.dat", bytes);
        return AbstractNewData::getAllAccounts(accounts);
    };
    const Names names = {"\\",      "/",    "\\zoe",       "/group\\ann",  "\\devid_\\log_data",
                         "\\debug", "\\..", "\\_delete_x", "\\other\\zoe", "\\bob/"};
    EXPECT_EQ(load(accountFileBytes(names, false)), 0);
    EXPECT_EQ(accounts, (Names{"D:/logs/log_data/zoe", "D:/logs/log_data/group/ann",
                               "D:/logs/log_data/devid_/log_data", "D:/logs/log_data/bob/"}));
    EXPECT_EQ(load(accountFileBytes({"\\Zoe", "\\zoe"}, false)), 0);
    EXPECT_EQ(accounts.size(), platform().sameFileName("Zoe", "zoe") ? 1U : 2U);
    EXPECT_EQ(load("short"), -1);
}

} // namespace
} // namespace kestrine
