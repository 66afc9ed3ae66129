#include "input/abstract_new_data.h"
#include "input/account_file.h"
#include "support/failing_platform.h"
#include "support/temp_dir.h"
#include "worldgen/install.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using test::FailingPlatform;
using test::FakeClockPlatform;
using test::ScopedPlatform;
using test::TempDir;
using worldgen::accountFileBytes;

using Names = std::vector<std::string>;

Names namesOf(const CMlAccountFile& file) {
    Names result;
    for (const AccountRecord& record : file.records()) {
        result.emplace_back(record.accountName());
    }
    return result;
}

TEST(AccountFile, BothLayouts) {
    const TempDir dir;
    const std::string path = dir.write("acc.dat", accountFileBytes({"\\a", "\\b/c"}, false));
    CMlAccountFile file(path);
    const std::string before = dir.read("acc.dat");
    ASSERT_EQ(file.loadAddRecords(), 0);
    EXPECT_EQ(namesOf(file), (Names{"\\a", "\\b/c"}));
    EXPECT_EQ(file.version(), CMlAccountFile::g_version);
    EXPECT_EQ(dir.read("acc.dat"), before);

    const std::string older = accountFileBytes({"\\a", "\\b/c"}, true);
    dir.write("acc.dat", older);
    ASSERT_EQ(file.loadAddRecords(), 0);
    EXPECT_EQ(namesOf(file), (Names{"\\a", "\\b/c"}));
    EXPECT_EQ(file.version(), CMlAccountFile::g_olderVersion);
    // Rewritten: the head of the current layout, every byte of the older records, zeros behind.
    std::string expected = accountFileBytes({}, false);
    expected[4] = 2;
    for (const size_t at : {size_t{16}, size_t{16} + 5278}) {
        expected += older.substr(at, 5278) + std::string(5662 - 5278, '\0');
    }
    EXPECT_EQ(dir.read("acc.dat"), expected);
    EXPECT_EQ(dir.tree().size(), 1U);

    ASSERT_EQ(file.loadAddRecords(), 0);
    EXPECT_EQ(namesOf(file), (Names{"\\a", "\\b/c"}));
    EXPECT_EQ(file.version(), CMlAccountFile::g_version);
}

// Whatever fails while the file is rewritten: its accounts are used, and either layout is there.
TEST(AccountFile, RewritingMayFailAnywhere) {
    const std::string older = accountFileBytes({"\\a", "\\b"}, true);
    for (const auto mode : {FailingPlatform::Mode::Once, FailingPlatform::Mode::FromThenOn}) {
        for (int n = 1;; ++n) {
            ASSERT_LT(n, 100);
            const TempDir dir;
            CMlAccountFile file(dir.write("acc.dat", older));
            FailingPlatform disk(n, mode);
            {
                const ScopedPlatform scope(disk);
                ASSERT_EQ(file.loadAddRecords(), 0);
            }
            EXPECT_EQ(namesOf(file), (Names{"\\a", "\\b"}));
            CMlAccountFile again(dir / "acc.dat");
            ASSERT_EQ(again.loadAddRecords(), 0);
            EXPECT_EQ(namesOf(again), (Names{"\\a", "\\b"}));
            if (!disk.failed()) {
                break;
            }
        }
    }
    // A directory in the place of the work file.
    const TempDir dir;
    CMlAccountFile file(dir.write("acc.dat", older));
    dir.write("acc.dat.temp/x");
    EXPECT_EQ(file.loadAddRecords(), 0);
    EXPECT_EQ(file.records().size(), 2U);
    EXPECT_EQ(dir.read("acc.dat"), older);
}

TEST(AccountFile, CountAndSizesAreNotTrusted) {
    struct Case {
        const char* name;
        std::string count; // four bytes, empty: as it is
        size_t size;
        int result;
        size_t records;
    };
    const size_t whole = 16 + 2 * 5662;
    const std::string none("\0\0\0\0", 4);
    const std::string minusOne = "\xFF\xFF\xFF\xFF";
    const std::string highest = "\xFF\xFF\xFF\x7F";
    for (const Case& c : {Case{"empty", "", 0, 11, 0},
                          {"head cut", "", 15, 11, 0},
                          {"no records", none, 16, 0, 0},
                          {"negative count", minusOne, whole, 0, 0},
                          {"more follows", none, whole, 0, 0},
                          {"record cut", "", whole - 1, 13, 1},
                          {"huge count", highest, whole, 13, 2}}) {
        SCOPED_TRACE(c.name);
        const TempDir dir;
        std::string bytes = accountFileBytes({"\\a", "\\b"}, false);
        bytes.replace(4, c.count.size(), c.count);
        CMlAccountFile file(dir.write("acc.dat", bytes.substr(0, c.size)));
        EXPECT_EQ(file.loadAddRecords(), c.result);
        EXPECT_EQ(file.records().size(), c.records);
    }
    const TempDir dir;
    std::string bytes = accountFileBytes({"\\a"}, false);
    bytes[0] = 'x';
    CMlAccountFile unknown(dir.write("acc.dat", bytes));
    EXPECT_NE(unknown.loadAddRecords(), 0);
    CMlAccountFile missing(dir / "none.dat");
    EXPECT_NE(missing.loadAddRecords(), 0);
    bytes = accountFileBytes({"\\a"}, false).replace(16 + 40, 36, std::string(36, 'n'));
    CMlAccountFile longName(dir.write("acc.dat", bytes));
    ASSERT_EQ(longName.loadAddRecords(), 0);
    EXPECT_EQ(namesOf(longName), Names{std::string(36, 'n')});
}

class AccountsTest : public testing::Test {
protected:
    AccountsTest() {
        worldgen::InstallSettings settings;
        settings.dataPath = "D:\\logs\\";
        worldgen::writeInstall(m_dir.path(), {"x"}, settings);
        m_platform.executable = m_dir / "install/ml/kestrine.exe";
    }

    void store(const Names& names) {
        m_dir.write("install/ml/config/syncaccount.dat", accountFileBytes(names, false));
    }

    TempDir m_dir;
    FakeClockPlatform m_platform;
    ScopedPlatform m_scope{m_platform};
};

TEST_F(AccountsTest, PathsInFileOrderWithoutUnusableOnes) {
    store({"\\", "/", "\\zoe", "/group\\ann", "\\devid_\\log_data", "\\debug", "\\..",
           "\\_delete_x", "\\other\\zoe", "\\bob/"});
    Names accounts = {"left over"};
    ASSERT_EQ(AbstractNewData::getAllAccounts(accounts), 0);
    EXPECT_EQ(accounts, (Names{"D:/logs/log_data/zoe", "D:/logs/log_data/group/ann",
                               "D:/logs/log_data/devid_/log_data", "D:/logs/log_data/bob/"}));

    store({"\\Zoe", "\\zoe"});
    ASSERT_EQ(AbstractNewData::getAllAccounts(accounts), 0);
    EXPECT_EQ(accounts.size(), platform().sameFileName("Zoe", "zoe") ? 1U : 2U);
}

TEST_F(AccountsTest, MissingAndDamaged) {
    Names accounts = {"left over"};
    std::filesystem::remove(m_dir / "install/ml/config/syncaccount.dat");
    EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), 0);
    EXPECT_EQ(accounts, Names{});

    m_dir.write("install/ml/config/syncaccount.dat", "short");
    EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), -1);
    store({"\\a"});
    EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), 0);
    // Both separators end the executable's directory.
    m_platform.executable = m_dir / "install/ml\\kestrine.exe";
    EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), 0);
    EXPECT_EQ(accounts.size(), std::filesystem::exists(m_dir / "install/ml\\config") ? 1U : 0U);
    std::filesystem::remove(m_dir / "install/mysql_path.ini");
    m_platform.executable = m_dir / "install/ml/kestrine.exe";
    EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), -1);
    for (const char* executable : {"", "kestrine.exe"}) {
        m_platform.executable = executable;
        EXPECT_EQ(AbstractNewData::getAllAccounts(accounts), -1);
    }
}

} // namespace
} // namespace kestrine
