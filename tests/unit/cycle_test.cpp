#include "cycle/publish.h"
#include "cycle/url_stat.h"
#include "support/expected_world.h"
#include "support/failing_platform.h"
#include "support/stat_tree.h"
#include "tree/names.h"
#include "worldgen/dat_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

namespace kestrine {
namespace {

using namespace test;

using Hosts = std::vector<std::pair<std::string, uint64_t>>; // host, visits
using Mode = FailingPlatform::Mode;

// One account whose logs the test writes, together with what they hold.
class CycleTest : public StatTree {
protected:
    // Budgets of the hash map and the memory disk in KiB, per cent that a spill writes.
    void startOver(int hash, int disk, int percent = 60) {
        m_disk.files.clear();
        m_totals = {};
        const std::string text =
            "[urlstat]\nurlStatRoot=/t/stat\nmemoryDiskPath=/t/mem\ndaycrcsortInterval=100\n"
            "weekmoncrcsortInterval=300\nmaxHashMemory=" +
            std::to_string(hash) + "\nmemoryDiskSize=" + std::to_string(disk) +
            "\nexportPersent=" + std::to_string(percent) + "\n";
        m_disk.files["config/urlstat.ini"] = {text.begin(), text.end()};
        Configuration::resetInstance();
    }
    void putLog(const std::string& date, int device, int number, const Hosts& hosts) {
        worldgen::Block block;
        for (const auto& [host, visits] : hosts) {
            const auto type = static_cast<uint32_t>(host.size() % 3);
            block.visit(host, type, static_cast<int>(visits));
            worldgen::HostTotal& total = m_totals.accounts["acc"][std::stoi(date)].hosts[host];
            total = {total.visits + visits, type};
        }
        const std::string path = "/devid_" + std::to_string(device) + "/" + date;
        m_totals.nodes["acc" + path].file = number;
        const std::string bytes = worldgen::DatFile().add(block).bytes();
        const std::string node = g_account + path;
        m_disk.files[names::datFile(names::typeDir(node), number)] = {bytes.begin(), bytes.end()};
        m_disk.directories.insert(names::typeDir(node));
    }
    void run(UrlStat&& stat = UrlStat(settings())) { run(stat); }
    void run(UrlStat& stat) {
        ASSERT_EQ(stat.init(), 0);
        ASSERT_EQ(stat.run(g_account), 0);
        EXPECT_EQ(m_disk.openNow(), 0U);
    }
    // Every day, week and month file and its lists hold exactly the logs; nothing temporary is
    // left.
    void expectAll() {
        std::set<std::string> left = m_disk.names(g_root);
        std::erase_if(left, [](const std::string& name) {
            return name.ends_with('/') || names::newDayNumber(name) >= 0;
        });
        EXPECT_EQ(differences(expectedTree(m_totals), readTree(g_root, left, "/t/log_data")), "");
        EXPECT_EQ(m_disk.bytesBelow(g_memoryDisk), 0U);
    }

    worldgen::Totals m_totals; // of the logs
};

// 32 hosts of 32 bytes, the last one visited once, fill one KiB; the next visit spills. What is
// written are the least visited, of equal counts the higher keys.
TEST_F(CycleTest, SpillKeepsTheMostVisited) {
    for (const auto& [percent, written] : {std::pair(30, 10), {1, 1}, {99, 32}, {100, 32}}) {
        startOver(1, 2048, percent);
        Hosts hosts;
        TestRecords records;
        for (uint64_t i = 0; i < 32; ++i) {
            records.push_back(recordOf("host-" + std::to_string(10 + i), 1 + (i + 4) % 5, 1));
            hosts.emplace_back(records.back().url, records.back().count);
        }
        std::ranges::sort(records, [](const TestRecord& a, const TestRecord& b) {
            return a.count != b.count ? a.count < b.count : a.key > b.key;
        });
        records.resize(static_cast<size_t>(written));
        hosts.emplace_back("host-10", 1);
        putLog("20120303", 1, 0, hosts);
        std::vector<TestRecords> spilled;
        FailingPlatform disk(0, Mode::Once, m_disk);
        disk.onCall = [&](int, std::string_view call) {
            for (const std::string& name : m_disk.names(g_memoryDisk)) {
                if (call == "remove" && name.ends_with(".temp") && spilled.size() < 2) {
                    spilled.push_back(readUrlFile(g_memoryDisk + ("/" + name)).records);
                }
            }
        };
        const ScopedPlatform scope(disk);
        run();
        expectAll();
        ASSERT_EQ(spilled.size(), 2U) << percent;
        EXPECT_EQ(spilled[0], summed({records})) << percent;
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
        merged += m_disk.files[week] != before[week] ? 'W' : day ? 'D' : '.';
    }
    EXPECT_EQ(merged, "W.D.D.WDW");
    expectAll();
}

// A node that fails before its first record only stays where it is.
TEST_F(CycleTest, AFailingNodeHoldsUpNoOther) {
    startOver(1000, 512000);
    putLog("20120303", 1, 0, {{"a", 1}});
    putLog("20120303", 2, 0, {{"b", 1}});
    struct : ForwardingPlatform {
        std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
            errno = EIO;
            return path.ends_with("devid_2/20120303/A/0/0.dat")
                       ? nullptr
                       : ForwardingPlatform::open(path, mode);
        }
    } disk;
    {
        const ScopedPlatform scope(disk);
        run();
        EXPECT_TRUE(m_disk.exists(dayFile("20120303")));
    }
    run();
    expectAll();
}

// Another program may have it open for a moment.
TEST_F(CycleTest, DirStatIsTriedFiveTimes) {
    const std::string path = g_accountDir + std::string("/dirstat");
    for (const uint64_t heldFor : {4000U, 5000U}) {
        m_disk.files[path] = {1};
        m_clock.slept = 0;
        auto held = platform().open(path, OpenMode::Read);
        m_clock.onSleep = [&] { held = m_clock.slept >= heldFor ? nullptr : std::move(held); };
        EXPECT_EQ(deleteDirStat(g_accountDir), heldFor < 5000 ? 0 : -1);
    }
}

} // namespace
} // namespace kestrine
