#include "frame/tree_names.h"
#include "frame/util.h"

#include <gtest/gtest.h>

#include <random>

namespace kestrine {
namespace {

struct Range {
    std::string begin;
    std::string end;
    bool operator==(const Range&) const = default;
};

Range weekOf(const std::string& date) {
    Range range;
    EXPECT_EQ(getDateOfCurrentWeek("r/acc/new/" + date, range.begin, range.end), 0) << date;
    return range;
}

Range monthOf(const std::string& date) {
    Range range;
    EXPECT_EQ(getDateOfCurrentMon("r/acc/new/" + date, range.begin, range.end), 0) << date;
    return range;
}

TEST(Calendar, KnownRanges) {
    for (const char* date : {"20120226", "20120229", "20120301", "20120303"}) {
        EXPECT_EQ(weekOf(date), (Range{"20120226", "20120303"})) << date;
    }
    EXPECT_EQ(weekOf("20120304"), (Range{"20120304", "20120310"}));
    EXPECT_EQ(weekOf("20131231"), (Range{"20131229", "20140104"})); // over the year's end
    EXPECT_EQ(weekOf("20120325"), (Range{"20120325", "20120331"})); // clocks change in Europe
    EXPECT_EQ(weekOf("20121104"), (Range{"20121104", "20121110"})); // and in America
    EXPECT_EQ(monthOf("20120215"), (Range{"20120201", "20120229"}));
    EXPECT_EQ(monthOf("20110215"), (Range{"20110201", "20110228"}));
    EXPECT_EQ(monthOf("19000201"), (Range{"19000201", "19000228"}));
    EXPECT_EQ(monthOf("20000229"), (Range{"20000201", "20000229"}));
    EXPECT_EQ(monthOf("20121231"), (Range{"20121201", "20121231"}));
}

// ---- an independent count: days walked one by one from Saturday, 1 January 2000

struct Day {
    int year = 2000;
    int month = 1;
    int day = 1;
    int weekday = 6; // Sunday is 0

    [[nodiscard]] int monthLength() const {
        const bool leap = year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
        const int lengths[] = {31, leap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        return lengths[month - 1];
    }
    void next() {
        weekday = (weekday + 1) % 7;
        if (++day > monthLength()) {
            day = 1;
            month = month % 12 + 1;
            year += month == 1 ? 1 : 0;
        }
    }
    [[nodiscard]] std::string text() const {
        return names::dateText(year * 10000 + month * 100 + day);
    }
};

TEST(Calendar, AgreesWithDaysWalkedOneByOne) {
    std::vector<Day> days(1);
    while (days.back().year < 2105) { // 2100 is no leap year
        days.push_back(days.back());
        days.back().next();
    }
    const uint32_t seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int i = 0; i < 1000; ++i) {
        const size_t at = 7 + random() % (days.size() - 14);
        const Day& day = days[at];
        const size_t sunday = at - static_cast<size_t>(day.weekday);
        ASSERT_EQ(weekOf(day.text()), (Range{days[sunday].text(), days[sunday + 6].text()}));
        Day last = day;
        last.day = day.monthLength();
        ASSERT_EQ(monthOf(day.text()), (Range{day.text().substr(0, 6) + "01", last.text()}));
    }
}

TEST(Calendar, OtherDatesAreRefused) {
    for (const char* date : {"20121399", "20110229", "20120100", "2012031", "abc", ""}) {
        std::string begin;
        std::string end;
        const std::string path = std::string("r/acc/new/") + date;
        EXPECT_EQ(getDateOfCurrentWeek(path, begin, end), -1) << date;
        EXPECT_EQ(getDateOfCurrentMon(path, begin, end), -1) << date;
    }
}

TEST(Calendar, GroupsAreTakenFromTheFront) {
    using Take =
        int (*)(std::vector<std::string>&, std::vector<std::string>&, std::string&, std::string&);
    struct Group {
        const char* begin;
        const char* end;
        std::vector<std::string> dates;
    };
    struct Case {
        Take take;
        std::vector<Group> groups;
    };
    const Case cases[] = {
        {Util::getNextWeekFiles,
         {{"20120129", "20120204", {"20120131"}},
          {"20120226", "20120303", {"20120226", "20120229", "20120303"}},
          {"20120304", "20120310", {"20120304"}},
          {"20130303", "20130309", {"20130304"}}}},
        {Util::getNexMonFiles,
         {{"20120101", "20120131", {"20120131"}},
          {"20120201", "20120229", {"20120226", "20120229"}},
          {"20120301", "20120331", {"20120303", "20120304"}},
          {"20130301", "20130331", {"20130304"}}}},
    };
    for (const Case& one : cases) {
        std::vector<std::string> paths;
        for (const char* date :
             {"20120131", "20120226", "20120229", "20120303", "20120304", "20130304"}) {
            paths.push_back(std::string("r/acc/new/") + date);
        }
        std::vector<std::string> group{"left over"};
        Range range;
        for (const Group& expected : one.groups) {
            ASSERT_EQ(one.take(paths, group, range.begin, range.end), 0);
            EXPECT_EQ(range, (Range{expected.begin, expected.end}));
            std::vector<std::string> dates;
            for (const std::string& path : group) {
                dates.emplace_back(names::lastComponent(path));
            }
            EXPECT_EQ(dates, expected.dates);
        }
        EXPECT_TRUE(paths.empty());
        EXPECT_EQ(one.take(paths, group, range.begin, range.end), -1);
        paths = {"r/acc/new/20121399"};
        testing::internal::CaptureStdout();
        EXPECT_EQ(one.take(paths, group, range.begin, range.end), -1);
        EXPECT_NE(testing::internal::GetCapturedStdout().find(
                      " getDateOfCurrentWeek r/acc/new/20121399 fail\n"),
                  std::string::npos);
    }
}

TEST(Calendar, TicksWrapWithTheLossOfOne) {
    EXPECT_EQ(elapsedTicks(1000, 1000), 0U);
    EXPECT_EQ(elapsedTicks(1000, 4500), 3500U);
    EXPECT_EQ(elapsedTicks(0xFFFFFFFFU, 0), 0U);
    EXPECT_EQ(elapsedTicks(0xFFFFFF00U, 0x100), 0x1FFU);
    EXPECT_EQ(elapsedTicks(0, 0xFFFFFFFFU), 0xFFFFFFFFU);
}

} // namespace
} // namespace kestrine
