// Damaged and lost statistics files: at most a few starts later the totals are exact again, and
// what was damaged can be looked at.
#include "service_world.h"

#include "frame/bytes.h"
#include "support/url_file_helper.h"
#include "worldgen/install.h"

#include <filesystem>

namespace kestrine::test {
namespace {

namespace fs = std::filesystem;

// Dates 20121230 and 20121231: one week, one month.
const std::string g_day = "alice/20121230/daycrcsort";
const std::string g_week = "alice/week20121230_20130105/weekcrcsort";
const std::string g_month = "alice/mon20121201_20121231/moncrcsort";

void change(const std::string& path, const std::function<void(std::vector<uint8_t>&)>& how) {
    std::vector<uint8_t> bytes = readBytes(path);
    ASSERT_GT(bytes.size(), 100u) << path;
    how(bytes);
    writeBytes(path, bytes);
}

using Harm = std::function<void(const std::string& path)>;

const Harm g_flipBlock = [](const std::string& path) {
    change(path, [](auto& bytes) { bytes[60] ^= 0x10; }); // in the first block's compressed bytes
};
const Harm g_flipStatus = [](const std::string& path) {
    change(path, [](auto& bytes) {
        const auto status = loadLittle<uint64_t>(bytes.data() + bytes.size() - 8);
        bytes.at(static_cast<size_t>(status) + 20) ^= 1;
    });
};
const Harm g_truncate = [](const std::string& path) {
    change(path, [](auto& bytes) { bytes.resize(bytes.size() * 2 / 3); });
};
const Harm g_lose = [](const std::string& path) { removeTree(path); };
const Harm g_litter = [](const std::string& path) { worldgen::writeFile(path, "left over"); };

struct Damage {
    const char* name;
    std::vector<std::pair<std::string, Harm>> harms; // by path below the statistics root
    std::vector<std::string> setAside = {};          // "DIRECTORY/NAME"
    bool newLogs = true;                             // arrive between damage and restart
};

class DamagedStatistics : public testing::Test {
protected:
    // Every damage meets the same world, which has backups, and new-day files 2 of its dates that
    // were kept.
    void SetUp() override {
        m_world.generate(tinyWorld(3000, 20121230));
        ASSERT_TRUE(m_world.onePass());
        m_world.append(tinyWorld(1500));
        ASSERT_TRUE(m_world.onePass());
        worldgen::writeFile(m_world.programDir() + "/do_not_delete_daycrcsortnew", "");
        m_world.append(tinyWorld(1000));
        ASSERT_TRUE(m_world.onePass());
        ASSERT_TRUE(m_world.matches(true));
        m_world.save();
    }
    void heal(const std::vector<Damage>& damages) {
        for (const Damage& damage : damages) {
            SCOPED_TRACE(damage.name);
            healOne(damage);
            m_world.restore();
        }
    }

private:
    void healOne(const Damage& damage) {
        for (const auto& [path, harm] : damage.harms) {
            ASSERT_NO_FATAL_FAILURE(harm(m_world.statRoot() + "/" + path));
        }
        if (damage.newLogs) {
            m_world.append(tinyWorld(1500));
        }
        ASSERT_NO_FATAL_FAILURE(settle(4));
        ASSERT_TRUE(m_world.matches(true));
        EXPECT_THAT(m_world.setAside(), testing::IsSupersetOf(damage.setAside));
        EXPECT_EQ(m_world.setAside().empty(), damage.setAside.empty());
    }
    // Starts until a run gets through a pass, and kills that one, which is quicker than a stop.
    void settle(int mostStarts) {
        for (int starts = 0; starts < mostStarts; ++starts) {
            const auto service = m_world.start();
            const bool passed = service->waitForPause();
            service->kill();
            const int code = service->wait();
            if (passed) {
                return;
            }
            ASSERT_EQ(code, -1) << service->tail();
        }
        FAIL() << "no run gets through a pass";
    }

    ServiceWorld m_world;
};

TEST_F(DamagedStatistics, AreMadeExactAgain) {
    const std::string day = "20121230/daycrcsort";
    const std::string week = "week20121230_20130105/weekcrcsort";
    const std::string month = "mon20121201_20121231/moncrcsort";
    const std::string backup = g_day + "_backup";
    const std::string newDay = "alice/new/20121230/2.daycrcsortnew";
    heal({
        {"day, status", {{g_day, g_flipStatus}}, {day}},
        {"day, status, no new logs", {{g_day, g_flipStatus}}, {day}, false},
        {"day, block", {{g_day, g_flipBlock}}, {day}},
        {"day, truncated with its backup",
         {{g_day, g_truncate}, {backup, g_flipBlock}},
         {day, day}},
        {"day lost with its backup",
         {{g_day, g_lose}, {backup, g_lose}},
         {"20121230/2.daycrcsortnew"}},
        {"week lost", {{g_week, g_lose}}},
        {"week truncated", {{g_week, g_truncate}}, {week}},
        {"month lost with its backup", {{g_month, g_lose}, {g_month + "_backup", g_lose}}},
        {"month, block", {{g_month, g_flipBlock}}, {month}},
        {"new-day file, status", {{newDay, g_flipStatus}}, {"20121230/2.daycrcsortnew"}},
        {"new-day file and day",
         {{newDay, g_flipStatus}, {g_day, g_flipBlock}},
         {"20121230/2.daycrcsortnew", day}},
        {"lists lost",
         {{"alice/20121230/topn", g_lose},
          {"alice/week20121230_20130105/topn", g_lose},
          {"alice/mon20121201_20121231/topn", g_lose}},
         {},
         false},
        {"left over",
         {{g_day + ".temp", g_litter},
          {g_week + ".temp.temp", g_litter},
          {"alice/20121231/topn.temp.temp/all.top.temp", g_litter},
          {"alice/new/20121230/9.daycrcsortnew.temp", g_litter},
          {"alice/diskTemp/20121230/0.temp", g_litter},
          {"../_memdisk/alice/20121230/0.temp", g_litter}},
         {},
         false},
    });
}

} // namespace
} // namespace kestrine::test
