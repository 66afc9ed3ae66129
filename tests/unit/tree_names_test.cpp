// Names of the trees, and the calendar that they are made of.
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
        EXPECT_EQ((Names{std::string(lastComponent(path)), std::string(parentOf(path))}),
                  (Names{last, parent}))
            << path;
    }
    EXPECT_EQ(join("x/y", "z") + join("x/", "z") + join("", "z"), "x/y/zx/zz");
    EXPECT_TRUE(liesBelow("/a/b", "/a/b/") && liesBelow("/a//b/c", "/a/b") && liesBelow("/a", "/"));
    for (const char* path : {"/a/bc", "/a", "/x/a/b", "a/b", ""}) {
        EXPECT_FALSE(liesBelow(path, "/a/b") || liesBelow(path, "")) << path;
    }
    const bool caseBlind = platform().sameFileName("a", "A");
    EXPECT_EQ(liesBelow("D:/Stat/x", "d:/stat"), caseBlind);
    EXPECT_EQ(accountOf("x/Debug").empty() && accountOf("x/_DELETE_x").empty(), caseBlind);
    for (const char* name : {"", "x/.", "x/..", "x/debug", "x/_delete_x"}) {
        EXPECT_EQ(accountOf(name), "");
    }
}

TEST(TreeNames, AreMadeAndTakenApart) {
    const std::string node = "D:/log_data/devid_9/log_data/alice/devid_7/20120313";
    EXPECT_EQ((Names{accountOf("a/bob/") + accountOf("debug2") + accountOf("_delete"),
                     accountOfNode(node), datFile("A", 99), datFile("A", 1234),
                     formalOf("d/x_backup") + formalOf("d/x.temp.temp"), withoutTemp("a.temp.temp"),
                     diskTempFile("r", "acc", 20120313, 4), topFile("d", ~0U)}),
              (Names{"bobdebug2_delete", "alice", "A/0/99.dat", "A/12/1234.dat", "d/xd/x", "a.temp",
                     "r/acc/diskTemp/20120313/4.temp", "d/4294967295.top"}));
    for (const int32_t number : {0, 2147483646}) {
        EXPECT_EQ(newDayNumber(newDayFile("new/20120313", number)), number);
    }
    for (const char* name :
         {"2147483647.daycrcsortnew", "007.daycrcsortnew", "5.daycrcsortnew.temp", ".daycrcsortnew",
          "-0.daycrcsortnew", "+1.daycrcsortnew", "5a.daycrcsortnew", "5.daycrcsort"}) {
        EXPECT_EQ(newDayNumber(name), -1) << name;
    }
}

TEST(TreeNames, PeriodDirectories) {
    PeriodDir dir;
    for (const std::string date : {"20121399", "20000001", "29999998"}) { // calendar or not
        EXPECT_TRUE(parsePeriodDir(date, dir) && dir.period == Period::Day) << date;
        EXPECT_EQ(dir.begin + dir.end, date + date);
    }
    for (const auto& [period, name] : {std::pair(Period::Week, "week19991226_20000101"),
                                       {Period::Month, "mon20120201_20120229"}}) {
        EXPECT_TRUE(parsePeriodDir(name, dir) && dir.period == period);
        EXPECT_EQ(periodDir("r/acc", period, dir.begin, dir.end), std::string("r/acc/") + name);
    }
    for (const char* name :
         {"", "20000000", "29999999", "2012030", "2012030a", "week", "week20120226-20120303",
          "week20120226_201203033", "mon20120201_2012022x", "Week20120226_20120303",
          "week00000001_00000002"}) {
        EXPECT_FALSE(parsePeriodDir(name, dir)) << name;
    }
}

TEST(Calendar, WeeksAndMonths) {
    const auto rangeOf = [](auto range, const std::string& date) {
        std::string begin;
        std::string end;
        return range("r/new/" + date, begin, end) == 0 ? begin + "-" + end : "none";
    };
    // A date, its week, from Sunday to Saturday, and its month.
    const char* const cases[][3] = {
        {"20120226", "20120226-20120303", "20120201-20120229"},
        {"19991231", "19991226-20000101", "19991201-19991231"},
        {"20000229", "20000227-20000304", "20000201-20000229"},
        {"21000228", "21000228-21000306", "21000201-21000228"}, // no leap year
        {"00010203", "00010128-00010203", "00010201-00010228"}};
    for (const auto& [date, week, month] : cases) {
        EXPECT_EQ(rangeOf(getDateOfCurrentWeek, date), week);
        EXPECT_EQ(rangeOf(getDateOfCurrentMon, date), month);
    }
    for (const char* date : {"19000229", "20121399", "20120431", "20120100", "2012031x", ""}) {
        EXPECT_EQ(rangeOf(getDateOfCurrentWeek, date), "none") << date;
        EXPECT_EQ(rangeOf(getDateOfCurrentMon, date), "none") << date;
    }
}

} // namespace
} // namespace kestrine
