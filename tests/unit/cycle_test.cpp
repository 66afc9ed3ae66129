#include "cycle/url_stat.h"
#include "frame/util.h"
#include "recovery/exception_check.h"
#include "support/stat_tree.h"
#include "worldgen/dat_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace kestrine {
namespace {

using namespace test;

using Settings = std::map<std::string, int>;
using Hosts = std::vector<std::pair<std::string, int>>; // host, visits

// One account whose logs the test writes, together with what they hold.
class CycleTest : public StatTree {
protected:
    void configure(const Settings& settings) {
        std::string text = "[urlstat]\n";
        for (const auto& [key, value] : settings) {
            text += key + "=" + std::to_string(value) + "\n";
        }
        text += std::string("urlStatRoot=") + g_root + "\nmemoryDiskPath=" + g_memoryDisk + "\n";
        m_disk.files["config/urlstat.ini"] = {text.begin(), text.end()};
        Configuration::resetInstance();
    }
    void putLog(const std::string& date, int device, int number, const Hosts& hosts) {
        m_expected[date];
        worldgen::Block block;
        for (const auto& [host, visits] : hosts) {
            const uint32_t type = static_cast<uint32_t>(host.size() % 3);
            block.visit(host, type, visits);
            m_expected[date].push_back({recordOf(host, static_cast<uint64_t>(visits), type)});
        }
        worldgen::DatFile file;
        const std::string bytes = (hosts.empty() ? file : file.add(block)).bytes();
        const std::string node = g_account + ("/devid_" + std::to_string(device) + "/" + date);
        m_disk.files[names::datFile(names::typeDir(node), number)] = {bytes.begin(), bytes.end()};
        m_disk.directories.insert(names::typeDir(node));
    }
    // Hosts of every length, a few of them very popular.
    static Hosts manyHosts(unsigned seed, size_t number) {
        std::mt19937_64 random(seed);
        Hosts hosts;
        for (size_t i = 0; i < number; ++i) {
            const uint64_t which = random() % 90;
            const size_t length = which % 30 == 7 ? 240 + which : 4 + which % 40;
            const std::string host = "h" + std::to_string(which) + std::string(length, 'x');
            hosts.emplace_back(host, which < 3 ? 20 : 1 + static_cast<int>(random() % 3));
        }
        return hosts;
    }
    int run(UrlStat& stat) {
        const int result = stat.run(g_account);
        EXPECT_EQ(m_disk.openNow(), 0U);
        return result;
    }
    int run() {
        UrlStat stat;
        EXPECT_EQ(stat.init(), 0);
        return run(stat);
    }
    // What the next process does first.
    void restart() {
        g_isRunning = 1;
        EXPECT_EQ(platform().removeTree("", g_memoryDisk), 0);
        EXPECT_EQ(platform().removeTree("", names::diskTempTree(g_accountDir)), 0);
        ExceptionCheck check;
        EXPECT_EQ(check.check(g_account), 0);
    }
    // Every day, week and month file and its lists hold exactly the logs; nothing temporary is
    // left.
    void expectAll() {
        std::map<std::string, std::vector<TestRecords>> periods;
        for (const auto& [date, parts] : m_expected) {
            std::string begin;
            std::string end;
            append(periods[names::formalFile(names::dayDir(g_accountDir, date), Period::Day)],
                   parts);
            if (names::isCalendarDate(date)) {
                ASSERT_EQ(getDateOfCurrentWeek(date, begin, end), 0);
                append(periods[names::formalFile(names::weekDir(g_accountDir, begin, end),
                                                 Period::Week)],
                       parts);
                ASSERT_EQ(getDateOfCurrentMon(date, begin, end), 0);
                append(periods[names::formalFile(names::monthDir(g_accountDir, begin, end),
                                                 Period::Month)],
                       parts);
            }
        }
        for (const auto& [path, parts] : periods) {
            const bool day = path.ends_with("/daycrcsort");
            expectPeriodFile(path, day ? g_dayStatusType : g_weekMonStatusType, summed(parts));
        }
        for (const auto& [path, bytes] : m_disk.files) {
            EXPECT_FALSE(path.ends_with(".temp") || path.starts_with(g_memoryDisk)) << path;
            const bool formal = path.ends_with("crcsort") && !path.ends_with("_backup");
            EXPECT_TRUE(!formal || periods.contains(path)) << path;
        }
    }
    static void append(std::vector<TestRecords>& to, const std::vector<TestRecords>& parts) {
        to.insert(to.end(), parts.begin(), parts.end());
    }
    std::vector<std::string> newFiles(const std::string& date) {
        const auto found = m_disk.names(newDir(date));
        return {found.begin(), found.end()};
    }

    std::map<std::string, std::vector<TestRecords>> m_expected; // by date
};

// Runs hooks at the calls that change the disk.
class HookedDisk : public ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;
    std::function<void(const std::string& path)> beforeRemove = [](const std::string&) {};
    std::function<void()> beforeChange = [] {};
    std::function<bool(const std::string& path)> seekFails = [](const std::string&) {
        return false;
    };

    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        beforeChange();
        auto file = ForwardingPlatform::open(path, mode);
        return seekFails(path) ? std::make_unique<Unseekable>(std::move(file)) : std::move(file);
    }
    int removeFile(const std::string& path) override {
        beforeChange();
        beforeRemove(path);
        return ForwardingPlatform::removeFile(path);
    }
    int rename(const std::string& from, const std::string& to) override {
        beforeChange();
        return ForwardingPlatform::rename(from, to);
    }

private:
    struct Unseekable : File {
        explicit Unseekable(std::unique_ptr<File> f) : file(std::move(f)) {}
        int64_t read(std::span<uint8_t> buffer) override { return file->read(buffer); }
        int64_t write(std::span<const uint8_t>) override { return -1; }
        int seek(int64_t) override { return -1; }
        int64_t tell() override { return file->tell(); }
        int64_t size() override { return file->size(); }
        int sync() override { return 0; }
        int close() override { return file->close(); }
        std::unique_ptr<File> file;
    };
};

// However small the budgets, the totals are the same and the memory disk stays within its own.
TEST_F(CycleTest, EveryBudgetCountsTheSame) {
    const Settings budgets[] = {
        {{"maxHashMemory", 1}, {"memoryDiskSize", 1}, {"exportPersent", 60}},
        {{"maxHashMemory", 1}, {"memoryDiskSize", 1024}, {"exportPersent", 100}},
        {{"maxHashMemory", 1}, {"memoryDiskSize", 1026}, {"exportPersent", 1}},
        {{"maxHashMemory", 3}, {"memoryDiskSize", 1027}, {"exportPersent", 30}},
        {{"maxHashMemory", 2}, {"memoryDiskSize", 1044}, {"exportPersent", 99}},
        {{"maxHashMemory", 1000}, {"memoryDiskSize", 512000}, {"exportPersent", 60}}};
    for (const Settings& settings : budgets) {
        SCOPED_TRACE(testing::PrintToString(settings));
        m_disk.files.clear();
        m_expected.clear();
        configure(settings);
        HookedDisk disk;
        uint64_t most = 0;
        disk.beforeRemove = [&](const std::string&) { // each file is whole before it is removed
            uint64_t bytes = 0;
            for (const auto& [path, content] : m_disk.files) {
                bytes += path.starts_with(g_memoryDisk) ? content.size() : 0;
            }
            most = std::max(most, bytes);
        };
        const ScopedPlatform scope(disk);
        UrlStat stat;
        ASSERT_EQ(stat.init(), 0);
        for (int round = 0; round < 2; ++round) {
            unsigned seed = 1;
            for (const char* const date : {"20120229", "20120301", "20120304"}) {
                for (const int device : {1, 2}) {
                    putLog(date, device, 2 * round, manyHosts(seed++, 60));
                    putLog(date, device, 2 * round + 1, manyHosts(seed++, 25));
                }
            }
            putLog("20120304", 3, round, {{std::string(3000, 'z'), 1}}); // above a budget
            m_clock.ticks = 1 + static_cast<uint32_t>(round) * 172800000;
            ASSERT_EQ(run(stat), 0);
            expectAll();
            EXPECT_TRUE(newFiles("20120304").empty());
        }
        const int64_t budget = settings.at("memoryDiskSize") * int64_t{1024} - 1048576;
        EXPECT_GT(most, 0U);
        EXPECT_TRUE(budget <= 0 || static_cast<int64_t>(most) <= budget) << most;
    }
}

// 32 hosts of 32 bytes fill one KiB; the next visit spills. What is written are the least visited,
// of equal counts the higher keys.
TEST_F(CycleTest, SpillKeepsTheMostVisited) {
    for (const auto& [percent, written] :
         {std::pair<int, size_t>{30, 10}, {60, 20}, {1, 1}, {99, 32}, {100, 32}, {50, 16}}) {
        m_disk.files.clear();
        m_expected.clear();
        configure({{"maxHashMemory", 1}, {"exportPersent", percent}, {"memoryDiskSize", 2048}});
        Hosts hosts;
        TestRecords records;
        for (int i = 0; i < 32; ++i) {
            const int visits = i == 31 ? 1 : 1 + i % 5;
            hosts.emplace_back("host-" + std::to_string(10 + i), visits);
            records.push_back(recordOf(hosts.back().first, static_cast<uint64_t>(visits),
                                       hosts.back().first.size() % 3));
        }
        std::ranges::sort(records, [](const TestRecord& a, const TestRecord& b) {
            return a.count != b.count ? a.count < b.count : a.key > b.key;
        });
        records.resize(written);
        hosts.emplace_back("host-10", 1);
        putLog("20120303", 1, 0, hosts);
        HookedDisk disk;
        std::map<std::string, TestRecords> spilled;
        disk.beforeRemove = [&](const std::string& path) {
            if (path.starts_with(g_memoryDisk)) {
                const UrlFileContent content = readUrlFile(path);
                EXPECT_TRUE(content.whole);
                spilled[path] = content.records;
            }
        };
        const ScopedPlatform scope(disk);
        ASSERT_EQ(run(), 0);
        expectAll();
        ASSERT_EQ(spilled.size(), 2U) << percent;
        EXPECT_EQ(spilled.begin()->first, "/t/mem/acc/20120303/0.temp");
        EXPECT_EQ(spilled.begin()->second, sortedByKey(records)) << percent;
        // The rest, and the last visit's host again if it was written.
        const bool again = std::ranges::count(records, "host-10", &TestRecord::url) == 1;
        EXPECT_EQ(spilled.rbegin()->second.size(), 32 - written + (again ? 1 : 0));
    }
}

// Milliseconds from the first pass, at which the tick counter stands a little before its wrap.
TEST_F(CycleTest, IntervalsAreMeasuredAcrossTheWrap) {
    configure({{"daycrcsortInterval", 100}, {"weekmoncrcsortInterval", 300}});
    const struct {
        uint64_t at;
        bool dayMerge;
        bool weekMonth;
    } passes[] = {{0, true, true},        {1, false, false},      {99999, false, false},
                  {100000, false, false}, // one millisecond is lost at the wrap
                  {100001, true, false},  {200000, false, false}, {200001, true, false},
                  {300000, false, false}, // lost for the other clock too
                  {300001, true, true},   {400001, true, false},  {600000, true, false},
                  {600001, false, true}, // the week stage merges the day file too
                  {700000, true, false},  {900001, true, true}};
    UrlStat stat;
    ASSERT_EQ(stat.init(), 0);
    int number = 0;
    const std::string day = dayFile("20120303");
    const std::string week = std::string(g_accountDir) + "/week20120226_20120303/weekcrcsort";
    for (const auto& [at, dayMerge, weekMonth] : passes) {
        SCOPED_TRACE(at);
        putLog("20120303", 1, number++, {{"host", 1}});
        m_clock.ticks = static_cast<uint32_t>(0xFFFFFFFF - 50000 + at);
        auto before = m_disk.files;
        ASSERT_EQ(run(stat), 0);
        EXPECT_EQ(m_disk.files[day] != before[day], dayMerge || weekMonth);
        EXPECT_EQ(m_disk.files[week] != before[week], weekMonth);
        EXPECT_EQ(newFiles("20120303").empty(), weekMonth);
    }
    expectAll();
}

// A stop at every change of the disk ends the pass with 0; the next process makes up for it.
TEST_F(CycleTest, AStopAnywhereLosesNothing) {
    configure({{"maxHashMemory", 1}, {"memoryDiskSize", 1026}});
    putLog("20120303", 1, 0, manyHosts(1, 12));
    ASSERT_EQ(run(), 0);
    putLog("20120303", 1, 1, manyHosts(2, 25));
    putLog("20120304", 2, 0, manyHosts(3, 25));
    const auto before = m_disk.files;
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        m_disk.files = before;
        int changes = 0;
        HookedDisk disk;
        disk.beforeChange = [&] {
            if (++changes == n) {
                g_isRunning = 0;
            }
        };
        {
            const ScopedPlatform scope(disk);
            ASSERT_EQ(run(), 0);
        }
        if (changes < n) {
            EXPECT_GT(n, 150);
            expectAll();
            break;
        }
        restart();
        ASSERT_EQ(run(), 0);
        expectAll();
        ASSERT_FALSE(HasFailure());
    }
}

// A node that fails after records were counted takes its whole date out of the pass, spilled files
// included; before the first one it only stays where it is.
TEST_F(CycleTest, AFailingNodeDropsItsDate) {
    for (const bool counted : {true, false}) {
        m_disk.files.clear();
        m_expected.clear();
        configure({{"maxHashMemory", 1}, {"memoryDiskSize", 1026}});
        for (const char* const date : {"20120303", "20120304"}) {
            putLog(date, 1, 0, manyHosts(1, 30));
            putLog(date, 2, 0, manyHosts(2, 30));
            putLog(date, 2, 1, manyHosts(3, 10));
        }
        HookedDisk disk;
        const std::string bad = counted ? "20120303/A/0/1.dat" : "20120303/A/0/0.dat";
        disk.seekFails = [&](const std::string& path) { return path.ends_with("devid_2/" + bad); };
        {
            const ScopedPlatform scope(disk);
            UrlStat stat;
            ASSERT_EQ(stat.init(), 0);
            for (int pass = 0; pass < 2; ++pass) { // nothing piles up
                ASSERT_EQ(run(stat), 0);
                EXPECT_EQ(m_disk.exists(dayFile("20120303")), !counted);
                EXPECT_TRUE(m_disk.exists(dayFile("20120304")));
                EXPECT_TRUE(newFiles("20120303").empty());
                EXPECT_TRUE(m_disk.names(g_accountDir + std::string("/diskTemp/20120303")).empty());
            }
        }
        ASSERT_EQ(run(), 0);
        expectAll();
    }
}

TEST_F(CycleTest, NothingNewChangesNothing) {
    putLog("20120303", 1, 0, {{"host", 3}});
    putLog("20120304", 1, 0, {}); // no URL at all: the position moves all the same
    m_disk.directories.insert(newDir("20120305"));
    m_disk.directories.insert(newDir("20121399"));
    for (int pass = 0; pass < 3; ++pass) {
        const auto before = m_disk.files;
        ASSERT_EQ(run(), 0);
        expectAll();
        EXPECT_TRUE(pass == 0 || difference(m_disk.files, before).empty());
        restart();
        EXPECT_TRUE(pass == 0 || difference(m_disk.files, before).empty());
    }
    EXPECT_EQ(readUrlFile(dayFile("20120304")).dayStatus->entries()[0].fileNumber, 0);
    // Lost files heal though nothing is new.
    const auto before = m_disk.files;
    for (const char* const lost :
         {"/week20120226_20120303/weekcrcsort", "/mon20120301_20120331/moncrcsort"}) {
        m_disk.files.erase(g_accountDir + std::string(lost));
        m_disk.files.erase(g_accountDir + std::string(lost) + "_backup");
    }
    restart();
    ASSERT_EQ(run(), 0);
    expectAll();
}

TEST_F(CycleTest, DateOutsideTheCalendarCountsInItsDayFile) {
    putLog("20121399", 1, 0, {{"host", 3}});
    putLog("20121231", 1, 0, {{"host", 4}});
    putLog("20130101", 1, 0, {{"host", 5}});
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_EQ(run(), 0);
        expectAll();
        EXPECT_EQ(newFiles("20121399").size(), 1U);
        EXPECT_TRUE(newFiles("20130101").empty());
        restart();
    }
}

TEST_F(CycleTest, MarkerFileKeepsNewDayFiles) {
    m_disk.files["do_not_delete_daycrcsortnew"] = {};
    for (int number = 0; number < 3; ++number) {
        putLog("20120303", 1, number, {{"host", number + 1}});
        for (int pass = 0; pass < 2; ++pass) {
            ASSERT_EQ(run(), 0);
            expectAll();
            EXPECT_EQ(newFiles("20120303").size(), static_cast<size_t>(number) + 1);
        }
        restart();
    }
    m_disk.files.erase("do_not_delete_daycrcsortnew");
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(newFiles("20120303").size(), 3U); // no month file was written
    putLog("20120303", 1, 3, {{"host", 1}});
    ASSERT_EQ(run(), 0);
    expectAll();
    EXPECT_TRUE(newFiles("20120303").empty());
}

// "dirstat" is tried five times, a second apart.
TEST_F(CycleTest, LockedDirStat) {
    for (int refusals = 0; refusals <= 6; ++refusals) {
        putLog("20120303", 1, refusals, {{"host", 1}});
        const std::string path = g_accountDir + std::string("/20120303/dirstat");
        m_disk.files[path] = {1};
        std::unique_ptr<File> lock = platform().open(path, OpenMode::Read);
        m_clock.slept = 0;
        m_clock.onSleep = [&] {
            if (m_clock.slept == static_cast<uint64_t>(refusals) * 1000) {
                lock.reset();
            }
        };
        if (refusals == 0) {
            lock.reset();
        }
        const bool gone = refusals < 5;
        EXPECT_EQ(UrlStat::deleteDirStat(g_accountDir + std::string("/20120303")), gone ? 0 : -1);
        EXPECT_EQ(m_clock.slept, static_cast<uint64_t>(std::min(refusals, 5)) * 1000);
        lock.reset();
        ASSERT_EQ(run(), 0);
        EXPECT_FALSE(m_disk.files.contains(path));
    }
    EXPECT_EQ(UrlStat::deleteDirStat("/t/stat/none"), 0);
    expectAll();
}

} // namespace
} // namespace kestrine
