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
using Mode = test::FailingPlatform::Mode;

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
    for (const Mode mode : {Mode::Once, Mode::FromThenOn}) {
        bool failed = true;
        for (int n = 1; failed; ++n) {
            const TempDir dir;
            CMlAccountFile file(dir.write("acc.dat", older));
            test::FailingPlatform disk(n, mode);
            const test::ScopedPlatform scope(disk);
            ASSERT_EQ(file.loadAddRecords(), 0);
            failed = disk.failed();
            EXPECT_EQ(namesOf(file), "\\a\\b/c");
            const std::string left = dir.read("acc.dat");
            EXPECT_TRUE(left == current || (failed && left == older));
            EXPECT_TRUE((failed && mode == Mode::FromThenOn) || dir.tree().size() == 1);
            ASSERT_EQ(file.loadAddRecords(), 0);
            EXPECT_EQ(namesOf(file), "\\a\\b/c");
        }
    }
}

TEST(AccountFile, CountAndSizesAreNotTrusted) {
    const size_t whole = 16 + 2 * 5662;
    // Count, size of the file, result, and records.
    const std::tuple<std::string, size_t, int, size_t> cases[] = {
        {"\2", 15, 11, 0},
        {std::string(1, '\0'), whole, 0, 0},
        {"\xFF\xFF\xFF\xFF", whole, 0, 0},
        {"\1", whole, 0, 1},
        {"\2", whole - 1, 13, 1},
        {"\xFF\xFF\xFF\x7F", whole, 13, 2}};
    const TempDir dir;
    CMlAccountFile file(dir / "acc.dat");
    EXPECT_NE(file.loadAddRecords(), 0); // missing
    for (const auto& [count, size, result, records] : cases) {
        std::string bytes = accountFileBytes({"\\a", "\\b"}, false);
        bytes.replace(16 + 40, 36, std::string(36, 'n')); // not even a zero behind it
        dir.write("acc.dat", bytes.replace(4, count.size(), count).substr(0, size));
        EXPECT_EQ(file.loadAddRecords(), result) << size;
        EXPECT_EQ(file.records().size(), records) << size;
    }
    EXPECT_EQ(namesOf(file), std::string(36, 'n') + "\\b");
    dir.write("acc.dat", std::string(whole, '\0'));
    EXPECT_NE(file.loadAddRecords(), 0); // no magic
}

TEST(Accounts, PathsInFileOrderWithoutUnusableOnes) {
    const TempDir dir;
    test::FakeClockPlatform machine;
    const test::ScopedPlatform scope(machine);
    worldgen::InstallSettings settings;
    settings.dataPath = "D:\\logs\\";
    worldgen::writeInstall(dir.path(), {"x"}, settings);
    machine.executable = dir / "install/ml/kestrine.exe";
    Names accounts = {"left over"};
    const auto load = [&](const std::string& bytes) {
        dir.write("install/ml/config/syncaccount.dat", bytes);
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
    std::filesystem::remove(dir / "install/mysql_path.ini");
    EXPECT_EQ(load(accountFileBytes({"\\a"}, false)), -1);
    std::filesystem::remove(dir / "install/ml/config/syncaccount.dat");
    EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), 0); // no account yet
    EXPECT_EQ(accounts, Names{});
}

} // namespace
} // namespace kestrine
