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

std::string newDay(int number) {
    return "alice/new/20121230/" + std::to_string(number) + ".daycrcsortnew";
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
const Harm g_flipEndPosition = [](const std::string& path) {
    change(path, [](auto& bytes) { bytes[bytes.size() - 2] ^= 0x40; });
};
const Harm g_truncate = [](const std::string& path) {
    change(path, [](auto& bytes) { bytes.resize(bytes.size() * 2 / 3); });
};
const Harm g_empty = [](const std::string& path) {
    change(path, [](auto& bytes) { bytes.clear(); });
};
const Harm g_lose = [](const std::string& path) { fs::remove_all(path); };
const Harm g_litter = [](const std::string& path) { worldgen::writeFile(path, "left over"); };

// What becomes of new-day files 2 and 3 of each date, of new logs before the damage: there are
// none, they are merged and kept by the marker file, or they wait to be merged.
enum class NewDayFiles { None, Kept, Wait };

struct Damage {
    const char* name;
    std::vector<std::pair<std::string, Harm>> harms; // by path below the statistics root
    std::vector<std::string> setAside = {};          // "DIRECTORY/NAME"
    bool newLogs = true;                             // arrive between damage and restart
    NewDayFiles newDayFiles = NewDayFiles::None;
};

class DamagedStatistics : public testing::Test {
protected:
    // Every damage meets the same world, which has backups.
    void SetUp() override {
        m_world.generate(tinyWorld(3000, 20121230));
        ASSERT_TRUE(m_world.onePass());
        m_world.append(tinyWorld(1500));
        ASSERT_TRUE(m_world.onePass());
        ASSERT_TRUE(m_world.matches());
        m_world.save();
    }
    void heal(const std::vector<Damage>& damages) {
        for (const Damage& damage : damages) {
            SCOPED_TRACE(damage.name);
            healOne(damage);
            m_world.restore();
            fs::remove(markerFile());
        }
    }

private:
    [[nodiscard]] std::string markerFile() const {
        return m_world.programDir() + "/do_not_delete_daycrcsortnew";
    }
    void healOne(const Damage& damage) {
        const bool kept = damage.newDayFiles == NewDayFiles::Kept;
        if (kept) {
            worldgen::writeFile(markerFile(), "");
        }
        ASSERT_NO_FATAL_FAILURE(leaveNewDayFiles(damage));
        for (const auto& [path, harm] : damage.harms) {
            ASSERT_NO_FATAL_FAILURE(harm(m_world.statRoot() + "/" + path));
        }
        if (damage.newLogs) {
            m_world.append(tinyWorld(1500));
        }
        ASSERT_NO_FATAL_FAILURE(settle(4));
        ASSERT_TRUE(m_world.matches(kept));
        EXPECT_THAT(m_world.setAside(), testing::IsSupersetOf(damage.setAside));
        EXPECT_EQ(m_world.setAside().empty(), damage.setAside.empty());
        m_world.append(tinyWorld(500));
        ASSERT_NO_FATAL_FAILURE(settle(1));
        ASSERT_TRUE(m_world.matches(kept));
    }
    // Two passes take up new logs. The first date's day file cannot be replaced meanwhile when the
    // new-day files are meant to wait.
    void leaveNewDayFiles(const Damage& damage) {
        const std::string obstacle = m_world.statRoot() + "/" + g_day + "_backup";
        const bool wait = damage.newDayFiles == NewDayFiles::Wait;
        if (wait) {
            fs::rename(obstacle, obstacle + "_away");
            worldgen::writeFile(obstacle + "/file", "");
        }
        for (int i = 0; damage.newDayFiles != NewDayFiles::None && i < 2; ++i) {
            m_world.append(tinyWorld(1000));
            const auto service = m_world.start();
            ASSERT_EQ(service->waitForPause(), !wait) << service->tail();
            service->kill();
            (void)service->wait();
        }
        if (wait) {
            fs::remove_all(obstacle);
            fs::rename(obstacle + "_away", obstacle);
        }
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

TEST_F(DamagedStatistics, DayFilesAreMadeExactAgain) {
    const std::string day = "20121230/daycrcsort";
    const std::string backup = g_day + "_backup";
    heal({
        {"status", {{g_day, g_flipStatus}}, {day}},
        {"status without new logs", {{g_day, g_flipStatus}}, {day}, false},
        {"block", {{g_day, g_flipBlock}}, {day}},
        {"end position", {{g_day, g_flipEndPosition}}, {day}},
        {"truncated", {{g_day, g_truncate}}, {day}},
        {"empty", {{g_day, g_empty}}, {day}, false},
        {"status, backup too", {{g_day, g_flipStatus}, {backup, g_flipStatus}}, {day, day}},
        {"block, backup too", {{g_day, g_flipBlock}, {backup, g_flipBlock}}, {day, day}},
        {"lost", {{g_day, g_lose}}, {"week20121230_20130105/weekcrcsort"}},
        {"lost, backup too",
         {{g_day, g_lose}, {backup, g_lose}},
         {"mon20121201_20121231/moncrcsort"}},
    });
}

TEST_F(DamagedStatistics, WeekAndMonthFilesAndListsAreMadeExactAgain) {
    const std::string week = "week20121230_20130105/weekcrcsort";
    const std::string month = "mon20121201_20121231/moncrcsort";
    heal({
        {"week lost", {{g_week, g_lose}}, {week}},
        {"week lost, backup too", {{g_week, g_lose}, {g_week + "_backup", g_lose}}},
        {"month lost, backup too", {{g_month, g_lose}, {g_month + "_backup", g_lose}}},
        {"block", {{g_month, g_flipBlock}}, {month}},
        {"truncated", {{g_week, g_truncate}}, {week}},
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
          {newDay(9) + ".temp", g_litter},
          {"alice/diskTemp/20121230/0.temp", g_litter},
          {"../_memdisk/alice/20121230/0.temp", g_litter}},
         {},
         false},
    });
}

TEST_F(DamagedStatistics, NewDayFilesAreMadeExactAgain) {
    const std::string two = "20121230/2.daycrcsortnew";
    const std::string three = "20121230/3.daycrcsortnew";
    const std::string day = "20121230/daycrcsort";
    constexpr auto kept = NewDayFiles::Kept;
    constexpr auto wait = NewDayFiles::Wait;
    heal({
        {"kept, status", {{newDay(2), g_flipStatus}}, {two}, true, kept},
        {"kept, and day",
         {{newDay(3), g_flipStatus}, {g_day, g_flipStatus}},
         {three, day},
         true,
         kept},
        {"waiting, status", {{newDay(2), g_flipStatus}}, {two, three}, true, wait},
        {"waiting, last status", {{newDay(3), g_flipStatus}}, {three}, false, wait},
        {"waiting, block", {{newDay(2), g_flipBlock}}, {two}, true, wait},
        {"waiting, last block", {{newDay(3), g_flipBlock}}, {three}, false, wait},
        {"waiting, lost", {{newDay(2), g_lose}}, {three}, true, wait},
        {"waiting, and day",
         {{newDay(3), g_flipStatus}, {g_day, g_flipBlock}},
         {three, day},
         true,
         wait},
    });
}

} // namespace
} // namespace kestrine::test
