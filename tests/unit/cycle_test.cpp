#include "cycle/publish.h"
#include "cycle/url_stat.h"
#include "recovery/exception_check.h"
#include "support/stat_tree.h"
#include "tree/names.h"
#include "tree/period.h"
#include "worldgen/dat_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>

namespace kestrine {
namespace {

using namespace test;

using Hosts = std::vector<std::pair<std::string, int>>; // host, visits

// Runs a hook before every change of the disk, with the path of what is removed. A path that ends
// in `unreadable` cannot be opened.
class HookedDisk : public ForwardingPlatform {
public:
    std::function<void(const std::string& removed)> beforeChange = [](const std::string&) {};
    std::string unreadable = "none";

    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        beforeChange("");
        errno = EIO;
        return path.ends_with(unreadable) ? nullptr : ForwardingPlatform::open(path, mode);
    }
    int removeFile(const std::string& path) override {
        beforeChange(path);
        return ForwardingPlatform::removeFile(path);
    }
    int rename(const std::string& from, const std::string& to) override {
        beforeChange("");
        return ForwardingPlatform::rename(from, to);
    }
};

// One account whose logs the test writes, together with what they hold.
class CycleTest : public StatTree {
protected:
    // Budgets of the hash map and the memory disk in KiB, per cent that a spill writes.
    void startOver(int hash, int disk, int percent = 60) {
        m_disk.files.clear();
        m_expected.clear();
        const std::string text =
            "[urlstat]\nurlStatRoot=/t/stat\nmemoryDiskPath=/t/mem\ndaycrcsortInterval=100\n"
            "weekmoncrcsortInterval=300\nmaxHashMemory=" +
            std::to_string(hash) + "\nmemoryDiskSize=" + std::to_string(disk) +
            "\nexportPersent=" + std::to_string(percent) + "\n";
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
    void run(UrlStat&& stat = UrlStat(settings())) { run(stat); }
    void run(UrlStat& stat) {
        ASSERT_EQ(stat.init(), 0);
        ASSERT_EQ(stat.run(g_account), 0);
        EXPECT_EQ(m_disk.openNow(), 0U);
    }
    // What the next process does first.
    void restart() {
        g_isRunning = 1;
        EXPECT_EQ(platform().removeTree("", g_memoryDisk), 0);
        EXPECT_EQ(platform().removeTree("", names::diskTempTree(g_accountDir)), 0);
        EXPECT_EQ(ExceptionCheck(settings()).check(g_account), 0);
    }
    // Every day, week and month file and its lists hold exactly the logs; nothing temporary is
    // left.
    void expectAll() {
        std::map<std::string, std::vector<TestRecords>> periods;
        for (const auto& [date, parts] : m_expected) {
            periods[dayFile(date)] = parts;
            for (const Period period : {Period::Week, Period::Month}) {
                std::string begin;
                std::string end;
                if (names::isCalendarDate(date)) {
                    ASSERT_EQ(kindOf(period).range(date, begin, end), 0);
                    auto& all = periods[names::formalFile(
                        names::periodDir(g_accountDir, period, begin, end), period)];
                    all.insert(all.end(), parts.begin(), parts.end());
                }
            }
        }
        for (const auto& [path, parts] : periods) {
            const bool day = path.ends_with("/daycrcsort");
            expectPeriodFile(path, day ? g_dayStatusType : g_weekMonStatusType, summed(parts));
        }
        for (const auto& [path, bytes] : m_disk.files) {
            EXPECT_FALSE(path.ends_with(".temp") || path.starts_with(g_memoryDisk) ||
                         (path.ends_with("crcsort") && !periods.contains(path)))
                << path;
        }
    }
    size_t newFiles(const std::string& date) { return m_disk.names(newDir(date)).size(); }

    HookedDisk m_hooked;
    const ScopedPlatform m_hookedScope{m_hooked};
    std::map<std::string, std::vector<TestRecords>> m_expected; // by date
};

// However small the budgets, the totals are the same and the memory disk stays within its own.
TEST_F(CycleTest, EveryBudgetCountsTheSame) {
    const int budgets[][3] = {{1, 1, 60},    {1, 1024, 100}, {1, 1026, 1},
                              {3, 1027, 30}, {2, 1044, 99},  {1000, 512000, 60}};
    for (const auto& [hash, disk, percent] : budgets) {
        startOver(hash, disk, percent);
        int64_t most = 0;
        m_hooked.beforeChange = [&](const std::string&) { // before a removal each file is whole
            int64_t bytes = 0;
            for (const auto& [path, content] : m_disk.files) {
                bytes += path.starts_with(g_memoryDisk) ? std::ssize(content) : 0;
            }
            most = std::max(most, bytes);
        };
        UrlStat stat(settings());
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
            run(stat);
            expectAll();
            EXPECT_EQ(newFiles("20120304"), 0U);
        }
        const int64_t budget = disk * int64_t{1024} - 1048576;
        EXPECT_TRUE(most > 0 && (budget <= 0 || most <= budget)) << most;
    }
}

// 32 hosts of 32 bytes fill one KiB; the next visit spills. What is written are the least visited,
// of equal counts the higher keys.
TEST_F(CycleTest, SpillKeepsTheMostVisited) {
    for (const auto& [percent, written] :
         {std::pair(30, 10), {60, 20}, {1, 1}, {99, 32}, {100, 32}, {50, 16}}) {
        startOver(1, 2048, percent);
        Hosts hosts;
        TestRecords records;
        for (int i = 0; i < 32; ++i) {
            const int visits = i == 31 ? 1 : 1 + i % 5;
            hosts.emplace_back("host-" + std::to_string(10 + i), visits);
            records.push_back(recordOf(hosts.back().first, static_cast<uint64_t>(visits), 1));
        }
        std::ranges::sort(records, [](const TestRecord& a, const TestRecord& b) {
            return a.count != b.count ? a.count < b.count : a.key > b.key;
        });
        records.resize(static_cast<size_t>(written));
        hosts.emplace_back("host-10", 1);
        putLog("20120303", 1, 0, hosts);
        std::vector<TestRecords> spilled;
        m_hooked.beforeChange = [&](const std::string& removed) {
            if (removed.starts_with(g_memoryDisk)) {
                spilled.push_back(readUrlFile(removed).records);
            }
        };
        run();
        expectAll();
        ASSERT_EQ(spilled.size(), 2U) << percent;
        EXPECT_EQ(spilled[0], sortedByKey(records)) << percent;
        // The rest, and the last visit's host again if it was written.
        EXPECT_EQ(std::ssize(spilled[1]),
                  32 - written + std::ranges::count(records, "host-10", &TestRecord::url));
    }
}

// Milliseconds from the first pass, at which the tick counter stands a little before its wrap,
// where one is lost; the week stage merges the day file too.
TEST_F(CycleTest, IntervalsAreMeasuredAcrossTheWrap) {
    startOver(1000, 512000);
    UrlStat stat(settings());
    int number = 0;
    const std::string week = std::string(g_accountDir) + "/week20120226_20120303/weekcrcsort";
    const uint32_t at[] = {0, 100000, 100001, 200000, 200001, 300000, 300001, 600000, 600001};
    std::string merged; // D: the day file; W: that and the week and month file
    for (const uint32_t ticks : at) {
        putLog("20120303", 1, number++, {{"host", 1}});
        m_clock.ticks = 0xFFFFFFFFU - 50000U + ticks;
        auto before = m_disk.files;
        run(stat);
        const bool day = m_disk.files[dayFile("20120303")] != before[dayFile("20120303")];
        const bool weekMonth = m_disk.files[week] != before[week];
        EXPECT_EQ(newFiles("20120303") == 0, weekMonth) << ticks;
        merged += weekMonth ? 'W' : day ? 'D' : '.';
        EXPECT_TRUE(day || !weekMonth) << ticks;
    }
    EXPECT_EQ(merged, "W.D.D.WDW");
    expectAll();
}

// A stop at every change of the disk ends the pass with 0; the next process makes up for it.
TEST_F(CycleTest, AStopAnywhereLosesNothing) {
    startOver(1, 1026);
    putLog("20120303", 1, 0, manyHosts(1, 12));
    run();
    putLog("20120303", 1, 1, manyHosts(2, 25));
    putLog("20120304", 2, 0, manyHosts(3, 25));
    const auto before = m_disk.files;
    bool stopped = true;
    for (int n = 1; stopped && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        m_disk.files = before;
        int left = n;
        m_hooked.beforeChange = [&](const std::string&) {
            if (--left == 0) {
                g_isRunning = 0;
            }
        };
        run();
        EXPECT_TRUE(left <= 0 || n > 150);
        stopped = std::exchange(left, 0) <= 0;
        for (const auto& [path, bytes] : m_disk.files) {
            EXPECT_EQ(path.find("/topn.temp"), std::string::npos) << path;
        }
        restart();
        run();
        expectAll();
    }
}

// A node that fails after records were counted takes its whole date out of the pass, spilled files
// included; before the first one it only stays where it is.
TEST_F(CycleTest, AFailingNodeDropsItsDate) {
    for (const bool counted : {true, false}) {
        startOver(1, 1026);
        for (const char* const date : {"20120303", "20120304"}) {
            putLog(date, 1, 0, manyHosts(1, 30));
            putLog(date, 2, 0, manyHosts(2, 30));
            putLog(date, 2, 1, manyHosts(3, 10));
        }
        m_hooked.unreadable = counted ? "devid_2/20120303/A/0/1.dat" : "devid_2/20120303/A/0/0.dat";
        UrlStat stat(settings());
        for (int pass = 0; pass < 2; ++pass) { // nothing piles up
            run(stat);
            EXPECT_EQ(m_disk.exists(dayFile("20120303")), !counted);
            EXPECT_TRUE(m_disk.exists(dayFile("20120304")));
            EXPECT_TRUE(m_disk.names(g_accountDir + std::string("/diskTemp/20120303")).empty());
        }
        m_hooked.unreadable = "none";
        run();
        expectAll();
    }
}

// A date that is none of the calendar counts in its day file alone; logs without a URL move the
// position; with the marker file no new-day file is deleted.
TEST_F(CycleTest, NothingNewChangesNothing) {
    for (const char* const date : {"20121231", "20130101", "20121399"}) {
        putLog(date, 1, 0, {{"host", 3}});
    }
    putLog("20130102", 1, 0, {});
    m_disk.files["do_not_delete_daycrcsortnew"] = {};
    for (int pass = 0; pass < 4; ++pass) {
        auto before = m_disk.files;
        run();
        expectAll();
        restart();
        EXPECT_TRUE(pass == 0 || difference(m_disk.files, before).empty());
        EXPECT_EQ(newFiles("20130101"), 1U);
        if (pass == 2) { // a month file that is written takes them all
            m_disk.files.erase("do_not_delete_daycrcsortnew");
        }
    }
    putLog("20130101", 1, 1, {{"host", 3}});
    run();
    expectAll();
    EXPECT_EQ(newFiles("20130101"), 0U);
    EXPECT_EQ(newFiles("20121399"), 1U);
    EXPECT_EQ(readUrlFile(dayFile("20130102")).dayStatus->entries()[0].fileNumber, 0);
}

// Another program may have it open for a moment, or remove it first.
TEST_F(CycleTest, DirStatIsTriedFiveTimes) {
    const std::string path = g_accountDir + std::string("/dirstat");
    for (const uint64_t heldFor : {0U, 4000U, 5000U}) {
        m_disk.files[path] = {1};
        m_clock.slept = 0;
        auto held = heldFor == 0 ? nullptr : platform().open(path, OpenMode::Read);
        m_clock.onSleep = [&] { held = m_clock.slept >= heldFor ? nullptr : std::move(held); };
        EXPECT_EQ(deleteDirStat(g_accountDir), heldFor < 5000 ? 0 : -1);
        EXPECT_EQ(m_clock.slept, heldFor);
    }
    m_hooked.beforeChange = [&](const std::string& removed) { m_disk.files.erase(removed); };
    EXPECT_EQ(deleteDirStat(g_accountDir), 0);
    EXPECT_EQ(m_clock.slept, 5000U);
}

} // namespace
} // namespace kestrine
