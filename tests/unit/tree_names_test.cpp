// Names of the trees, and the calendar that they are made of.
#include "frame/ticks.h"
#include "platform/platform.h"
#include "tree/calendar.h"
#include "tree/names.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace names;
using Names = std::vector<std::string>;

TEST(TreeNames, PathsAreCutJoinedAndCompared) {
    const char* const cuts[][3] = {{"a/b/c", "c", "a/b"}, {"a/b/c/", "c", "a/b"}, {"c", "c", ""},
                                   {"", "", ""},          {"/c", "c", "/"},       {"/", "", ""},
                                   {"a//b", "b", "a"},    {"D:/x", "x", "D:"}};
    for (const auto& [path, last, parent] : cuts) {
        EXPECT_EQ(lastComponent(path), last) << path;
        EXPECT_EQ(parentOf(path), parent) << path;
    }
    EXPECT_EQ(join("x/y", "z") + join("x/", "z") + join("", "z"), "x/y/zx/zz");
    for (const char* path : {"/a/b", "/a/b/", "/a//b/c"}) {
        EXPECT_TRUE(liesBelow(path, "/a/b") && liesBelow(path, "/a/b/") && liesBelow(path, "/"));
    }
    for (const char* path : {"/a/bc", "/a", "/x/a/b", "a/b", ""}) {
        EXPECT_FALSE(liesBelow(path, "/a/b") || liesBelow(path, "")) << path;
    }
    const bool caseBlind = platform().sameFileName("a", "A");
    EXPECT_EQ(liesBelow("D:/Stat/x", "d:/stat"), caseBlind);
    EXPECT_EQ(accountOf("x/Debug").empty() && accountOf("x/_DELETE_x").empty(), caseBlind);
}

TEST(TreeNames, LogData) {
    EXPECT_EQ(accountOf("group/bob/") + accountOf("debug2") + accountOf("_delete"),
              "bobdebug2_delete");
    for (const char* name : {"", "x/.", "x/..", "x/debug", "x/_delete_x"}) {
        EXPECT_EQ(accountOf(name), "");
    }
    const char* const node = "D:/log_data/devid_9/log_data/alice/devid_7/20120313";
    EXPECT_EQ(accountOfNode(node), "alice");
    EXPECT_EQ(datFile(node, 99), std::string(node) + "/0/99.dat");
    EXPECT_EQ(datFile(node, 1234), std::string(node) + "/12/1234.dat");
}

TEST(TreeNames, PeriodDirectories) {
    PeriodDir dir;
    for (const char* name : {"20121399", "20000001", "29999998"}) { // calendar or not
        EXPECT_TRUE(parsePeriodDir(name, dir) && dir.period == Period::Day) << name;
        EXPECT_EQ(dir.begin + dir.end, std::string(name) + name);
    }
    EXPECT_TRUE(parsePeriodDir("week19991226_20000101", dir) && dir.period == Period::Week);
    EXPECT_TRUE(parsePeriodDir(periodDir("", Period::Month, "20120201", "20120229"), dir));
    EXPECT_EQ(dir.period, Period::Month);
    EXPECT_EQ(dir.begin + "-" + dir.end, "20120201-20120229");
    EXPECT_EQ(periodDir("r/acc", Period::Week, dir.begin, dir.end), "r/acc/week20120201_20120229");
    for (const char* name :
         {"", "20000000", "29999999", "2012030", "201203070", "2012030a", "+2012030", "week",
          "week20120226", "week20120226-20120303", "week20120226_2012030", "week20120226_201203033",
          "mon20120201_2012022x", "month20120201_20120229", "Week20120226_20120303",
          "week00000001_00000002"}) {
        EXPECT_FALSE(parsePeriodDir(name, dir)) << name;
    }
}

TEST(TreeNames, Files) {
    const std::string dir = newDayDir("r/acc", "20120313");
    EXPECT_EQ((Names{dir, dayDirOfNewDayDir(dir), accountDirOfNewDayDir(dir + "/")}),
              (Names{"r/acc/new/20120313", "r/acc/20120313", "r/acc"}));
    for (const int32_t number : {0, 2147483646}) {
        EXPECT_EQ(newDayNumber(newDayFile(dir, number)), number);
    }
    for (const char* name :
         {"2147483647.daycrcsortnew", "007.daycrcsortnew", "5.daycrcsortnew.temp", ".daycrcsortnew",
          "-0.daycrcsortnew", "+1.daycrcsortnew", "5a.daycrcsortnew", "5.daycrcsort"}) {
        EXPECT_EQ(newDayNumber(name), -1) << name;
    }
    const std::string formal = formalFile("d", Period::Day);
    for (const std::string& path : {formal, backupOf(formal), tempOf(tempOf(formal))}) {
        EXPECT_EQ(formalOf(path), formal);
    }
    EXPECT_EQ((Names{backupOf(formal), withoutTemp("a.temp.temp"), formalFile("d", Period::Week),
                     formalFile("d", Period::Month), memoryDiskFile("m", "acc", 20120313, 4),
                     diskTempFile("r", "acc", 20120313, 4), topTempTempDir("d"),
                     topFile("d", 4294967295U), topAllFile("d"), dirStatFile("d")}),
              (Names{"d/daycrcsort_backup", "a.temp", "d/weekcrcsort", "d/moncrcsort",
                     "m/acc/20120313/4.temp", "r/acc/diskTemp/20120313/4.temp", "d/topn.temp.temp",
                     "d/4294967295.top", "d/all.top", "d/dirstat"}));
}

template <typename Range>
std::string rangeOf(Range range, const std::string& date) {
    std::string begin;
    std::string end;
    return range("r/acc/new/" + date, begin, end) == 0 ? begin + "-" + end : "none";
}

TEST(Calendar, AgreesWithDaysWalkedOneByOne) {
    Names days = {"19991226", "19991227", "19991228", "19991229", "19991230", "19991231"};
    for (int year = 2000; year <= 2104; ++year) { // 2100 is no leap year
        const int february = year % 4 == 0 && year != 2100 ? 29 : 28;
        const int lengths[] = {31, february, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        for (int month = 1; month <= 12; ++month) {
            const int first = year * 10000 + month * 100 + 1;
            const int last = first + lengths[month - 1] - 1;
            for (int date = first; date <= last; ++date) {
                days.push_back(dateText(date));
                ASSERT_EQ(rangeOf(getDateOfCurrentMon, days.back()),
                          std::to_string(first) + "-" + std::to_string(last));
            }
        }
    }
    for (size_t i = 0; i + 7 < days.size(); ++i) { // the first one is a Sunday
        const size_t sunday = i - i % 7;
        ASSERT_EQ(rangeOf(getDateOfCurrentWeek, days[i]), days[sunday] + "-" + days[sunday + 6]);
    }
    EXPECT_EQ(rangeOf(getDateOfCurrentMon, "00010203"), "00010201-00010228");
    for (const char* date : {"19000229", "20121399", "20110229", "20120431", "20120100", "20120001",
                             "2012031", "201203133", "2012031x", ""}) {
        EXPECT_EQ(rangeOf(getDateOfCurrentWeek, date), "none") << date;
        EXPECT_EQ(rangeOf(getDateOfCurrentMon, date), "none") << date;
    }
}

TEST(Calendar, GroupsAreTakenFromTheFront) {
    const auto groupsOf = [](auto take, Names paths) {
        std::string all;
        std::string begin;
        std::string end;
        Names group = {"left over"};
        for (int i = 0; i < 9 && take(paths, group, begin, end) == 0; ++i) {
            all += begin + "-" + end + ":" + std::to_string(group.size()) + group.back() + " ";
        }
        return all;
    };
    const Names paths = {"x/20120131", "x/20120226", "x/20120229", "x/20120303", "x/20130304"};
    EXPECT_EQ(groupsOf(Util::getNextWeekFiles, paths),
              "20120129-20120204:1x/20120131 20120226-20120303:3x/20120303 "
              "20130303-20130309:1x/20130304 ");
    EXPECT_EQ(groupsOf(Util::getNexMonFiles, paths),
              "20120101-20120131:1x/20120131 20120201-20120229:2x/20120229 "
              "20120301-20120331:1x/20120303 20130301-20130331:1x/20130304 ");
    EXPECT_EQ(groupsOf(Util::getNextWeekFiles, {"x/20121399"}), "");
}

TEST(Calendar, TicksWrapWithTheLossOfOne) {
    EXPECT_EQ(elapsedTicks(1000, 4500), 3500U);
    EXPECT_EQ(elapsedTicks(0xFFFFFFFFU, 0), 0U);
    EXPECT_EQ(elapsedTicks(0xFFFFFF00U, 0x100), 0x1FFU);
}

} // namespace
} // namespace kestrine
