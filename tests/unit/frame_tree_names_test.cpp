#include "frame/tree_names.h"
#include "support/forwarding_platform.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

TEST(TreeNames, CutAndJoin) {
    struct Case {
        const char* path;
        const char* last;
        const char* parent;
    };
    const Case cases[] = {
        {"a/b/c", "c", "a/b"}, {"a/b/c/", "c", "a/b"}, {"c", "c", ""},     {"", "", ""},
        {"/c", "c", "/"},      {"/", "", ""},          {"a//b", "b", "a"}, {"D:/x", "x", "D:"},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(names::lastComponent(one.path), one.last) << one.path;
        EXPECT_EQ(names::parentOf(one.path), one.parent) << one.path;
    }
    EXPECT_EQ(names::join("x/y", "z"), "x/y/z");
    EXPECT_EQ(names::join("x/y/", "z"), "x/y/z");
    EXPECT_EQ(names::join("/", "z"), "/z");
    EXPECT_EQ(names::join("", "z"), "z");
}

class CaseBlindPlatform : public test::ForwardingPlatform {
public:
    bool sameFileName(const std::string& a, const std::string& b) const override {
        return lower(a) == lower(b);
    }

private:
    static std::string lower(std::string text) {
        for (char& c : text) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        return text;
    }
};

TEST(TreeNames, LiesBelow) {
    struct Case {
        const char* path;
        const char* directory;
        bool below;
    };
    const Case cases[] = {
        {"/a/b", "/a/b", true},    {"/a/b/", "/a/b", true},  {"/a/b", "/a/b/", true},
        {"/a/b/c", "/a/b", true},  {"/a/bc", "/a/b", false}, {"/a", "/a/b", false},
        {"/x/a/b", "/a/b", false}, {"/a", "/", true},        {"/", "/", true},
        {"a", "/", false},         {"/a", "", false},        {"", "", false},
        {"a/b", "a", true},        {"a//b", "a/b", true},    {"/a/b", "a", false},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(names::liesBelow(one.path, one.directory), one.below)
            << one.path << " " << one.directory;
    }
    CaseBlindPlatform blind;
    const test::ScopedPlatform scope(blind);
    EXPECT_TRUE(names::liesBelow("D:/Stat/x", "d:/stat"));
    EXPECT_FALSE(names::liesBelow("D:/Stats/x", "d:/stat"));
    EXPECT_EQ(names::accountOf("log_data/Debug"), "");
    EXPECT_EQ(names::accountOf("log_data/_DELETE_x"), "");
}

TEST(TreeNames, LogData) {
    const std::pair<const char*, const char*> accounts[] = {
        {"D:/devid_1/log_data/alice", "alice"},
        {"log_data/group/bob/", "bob"},
        {"", ""},
        {"log_data/.", ""},
        {"log_data/..", ""},
        {"log_data/debug", ""},
        {"log_data/debug2", "debug2"},
        {"log_data/_delete_x", ""},
        {"log_data/_delete", "_delete"},
    };
    for (const auto& [path, account] : accounts) {
        EXPECT_EQ(names::accountOf(path), account) << path;
    }
    const char* const node = "D:/log_data/devid_9/log_data/alice/devid_7/20120313";
    EXPECT_EQ(names::accountOfNode(node), "alice");
    EXPECT_EQ(names::getDateOfPath(node), 20120313);
    EXPECT_EQ(names::getDateOfPath("x/2012abc"), 2012);
    EXPECT_EQ(names::getDateOfPath("x/abc"), 0);
    EXPECT_EQ(names::datFile("n/A", 99), "n/A/0/99.dat");
    EXPECT_EQ(names::datFile("n/A", 1234), "n/A/12/1234.dat");
}

TEST(TreeNames, PeriodDirectories) {
    const std::pair<const char*, Period> good[] = {
        {"20120307", Period::Day},
        {"20121399", Period::Day}, // passes the range, calendar or not
        {"20000001", Period::Day},
        {"29999998", Period::Day},
        {"week20120226_20120303", Period::Week},
        {"week19991226_20000101", Period::Week},
        {"mon20120201_20120229", Period::Month},
    };
    for (const auto& [name, expected] : good) {
        Period period{};
        EXPECT_TRUE(names::parsePeriodDir(name, period)) << name;
        EXPECT_EQ(period, expected) << name;
    }
    const char* const bad[] = {
        "",
        "new",
        "diskTemp",
        "topn",
        "20000000",
        "29999999",
        "2012030",
        "201203070",
        "2012030a",
        "a0120307",
        "+2012030",
        "week",
        "week20120226",
        "week20120226-20120303",
        "week20120226_2012030",
        "week20120226_201203033",
        "week20120226_20120303/",
        "mon20120201_2012022x",
        "month20120201_20120229",
        "Week20120226_20120303",
        "week00000001_00000002",
    };
    for (const char* name : bad) {
        Period period{};
        EXPECT_FALSE(names::parsePeriodDir(name, period)) << name;
    }
    std::string begin;
    std::string end;
    EXPECT_FALSE(names::parsePeriodRange("20120307", begin, end));
    const std::string week = names::weekDir("r/acc", "20120226", "20120303");
    EXPECT_EQ(week, "r/acc/week20120226_20120303");
    EXPECT_TRUE(names::parsePeriodRange(names::lastComponent(week), begin, end));
    EXPECT_EQ(begin + "-" + end, "20120226-20120303");
    const std::string month = names::monthDir("r/acc", "20120201", "20120229");
    EXPECT_EQ(month, "r/acc/mon20120201_20120229");
    EXPECT_TRUE(names::parsePeriodRange(names::lastComponent(month), begin, end));
    EXPECT_EQ(begin + "-" + end, "20120201-20120229");
}

TEST(TreeNames, CalendarDates) {
    for (const char* date : {"20120229", "20000229", "20241231", "00010101"}) {
        EXPECT_TRUE(names::isCalendarDate(date)) << date;
    }
    for (const char* date : {"20110229", "19000229", "20121399", "20120100", "20120001", "2012031",
                             "201203133", "2012031x", "", "20120431"}) {
        EXPECT_FALSE(names::isCalendarDate(date)) << date;
    }
    EXPECT_EQ(names::dateText(20120307), "20120307");
    EXPECT_EQ(names::dateText(10101), "00010101");
}

TEST(TreeNames, FormalFiles) {
    EXPECT_EQ(names::formalFile("d", Period::Day), "d/daycrcsort");
    EXPECT_EQ(names::formalFile("d", Period::Week), "d/weekcrcsort");
    EXPECT_EQ(names::formalFile("d", Period::Month), "d/moncrcsort");
    const char* const formal = "a/daycrcsort";
    for (const std::string& path : {std::string(formal), names::backupOf(formal),
                                    names::tempOf(formal), names::tempOf(names::tempOf(formal))}) {
        EXPECT_EQ(names::formalOf(path), formal) << path;
    }
    EXPECT_EQ(names::backupOf(formal), "a/daycrcsort_backup");
    EXPECT_EQ(names::withoutTemp("a/x.temp.temp"), "a/x.temp");
    EXPECT_EQ(names::withoutTemp("a/x"), "a/x");
}

TEST(TreeNames, NewDayFiles) {
    const std::string dir = names::newDayDir("r/acc", "20120313");
    EXPECT_EQ(dir, "r/acc/new/20120313");
    EXPECT_EQ(names::dayDirOfNewDayDir(dir), "r/acc/20120313");
    EXPECT_EQ(names::accountDirOfNewDayDir(dir + "/"), "r/acc");
    const std::pair<std::string, int32_t> cases[] = {
        {names::newDayFile(dir, 0), 0},
        {names::newDayFile(dir, 2147483646), 2147483646},
        {"2147483647.daycrcsortnew", -1}, // one more must be a number too
        {"007.daycrcsortnew", -1},
        {"2147483648.daycrcsortnew", -1},
        {"5.daycrcsortnew.temp", -1},
        {".daycrcsortnew", -1},
        {"-1.daycrcsortnew", -1},
        {"+1.daycrcsortnew", -1},
        {"5a.daycrcsortnew", -1},
        {"5daycrcsortnew", -1},
        {"5.xdaycrcsortnew", -1},
        {"5.daycrcsort", -1},
        {"", -1},
    };
    for (const auto& [path, number] : cases) {
        EXPECT_EQ(names::newDayNumber(path), number) << path;
    }
}

TEST(TreeNames, OtherFiles) {
    EXPECT_EQ(names::accountDir("r", "acc"), "r/acc");
    EXPECT_EQ(names::dayDir("r/acc", "20120313"), "r/acc/20120313");
    EXPECT_EQ(names::memoryDiskFile("m", "acc", 20120313, 4), "m/acc/20120313/4.temp");
    EXPECT_EQ(names::diskTempTree("r/acc"), "r/acc/diskTemp/");
    EXPECT_EQ(names::diskTempFile("r", "acc", 20120313, 4), "r/acc/diskTemp/20120313/4.temp");
    EXPECT_EQ(names::mergeRoundFile(names::diskTempDir("r/acc", "20120313"), 2),
              "r/acc/diskTemp/20120313/2.merge.temp");
    EXPECT_EQ(names::topDir("d"), "d/topn");
    EXPECT_EQ(names::topTempDir("d"), "d/topn.temp");
    EXPECT_EQ(names::topTempTempDir("d"), "d/topn.temp.temp");
    EXPECT_EQ(names::topFile("d/topn", 4294967295U), "d/topn/4294967295.top");
    EXPECT_EQ(names::topAllFile("d/topn"), "d/topn/all.top");
    EXPECT_EQ(names::dirStatFile("d"), "d/dirstat");
    const std::pair<const char*, const char*> dumps[] = {
        {"r/acc/20120313/daycrcsort", "r/debug/20120313/"},
        {"r/acc/new/20120313/5.daycrcsortnew", "r/debug/20120313/"},
        {"r/acc/week20120226_20120303/weekcrcsort", "r/debug/week20120226_20120303/"},
        {"r/acc/mon20120201_20120229/moncrcsort", "r/debug/mon20120201_20120229/"},
        {"r/acc/20120313_kept/daycrcsort", "r/debug/20120313/"},
        {"r/acc/20120313/topn/all.top", "r/debug/20120313/"},
    };
    for (const auto& [path, dump] : dumps) {
        EXPECT_EQ(names::dumpDir("r", path), dump);
    }
}

} // namespace
} // namespace kestrine
