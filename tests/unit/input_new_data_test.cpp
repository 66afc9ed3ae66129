#include "frame/configuration.h"
#include "frame/tree_names.h"
#include "input/url_file_new_data.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

#include <limits>

namespace kestrine {
namespace {

using test::dayStatusOf;
using test::TempDir;

using Lines = std::vector<std::string>;

constexpr const char* g_date = "20120303";

struct Progress {
    std::string device;
    int32_t file = -1;
    uint64_t offset = 0;
};
using Node = std::vector<Progress>;

class CountingPlatform : public test::ForwardingPlatform {
public:
    int opened = 0;
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        ++opened;
        return ForwardingPlatform::open(path, mode);
    }
};

class NewDataTest : public testing::Test {
protected:
    NewDataTest() {
        Configuration* configuration = nullptr;
        EXPECT_EQ(Configuration::getInstance(&configuration), 0);
        configuration->setUrlStatRoot(m_dir / "stat");
        configuration->setMemoryDiskPath(m_dir / "mem");
    }
    ~NewDataTest() override { Configuration::resetInstance(); }

    // Names that a careless search for the account would stumble over.
    [[nodiscard]] std::string account() const { return m_dir / "devid_/log_data/x/log_data/acc"; }
    [[nodiscard]] std::string nodePath(const std::string& device, const std::string& date) const {
        return account() + "/" + device + "/" + date;
    }
    // "devid_1/20120303/A/0/0.dat"
    void put(const std::string& file) { m_dir.write("devid_/log_data/x/log_data/acc/" + file); }

    void writeStatus(const std::string& path, int32_t counter, const Node& nodes) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::vector<NodeEntry> entries;
        for (const Progress& node : nodes) {
            entries.push_back({nodePath(node.device, g_date), node.file, node.offset});
        }
        test::writeUrlFile(path, {{test::recordOf("host")}}, dayStatusOf(entries, counter));
    }
    [[nodiscard]] std::string dayFile() const { return m_dir / "stat/acc/20120303/daycrcsort"; }
    [[nodiscard]] std::string newDayFile(int32_t number) const {
        return names::newDayFile(m_dir / "stat/acc/new/20120303", number);
    }

    // "20120303 devid_1 -1 0" for each node that is due.
    Lines due() {
        UrlFileNewData detector;
        std::vector<DayStatus> days(1);
        EXPECT_EQ(detector.getDayStatusHaveNewData(account(), days), 0);
        EXPECT_TRUE(detector.newNodes().empty());
        Lines lines;
        for (const DayStatus& day : days) {
            EXPECT_FALSE(day.entries().empty());
            for (const NodeEntry& node : day.entries()) {
                const std::string date(names::lastComponent(node.path));
                const std::string device(names::lastComponent(names::parentOf(node.path)));
                EXPECT_EQ(node.path, nodePath(device, date));
                EXPECT_EQ(std::to_string(day.date()), date);
                lines.push_back(date + " " + device + " " + std::to_string(node.fileNumber) + " " +
                                std::to_string(node.offset));
            }
        }
        return lines;
    }
    int failingCall() {
        UrlFileNewData detector;
        std::vector<DayStatus> days(1);
        const int result = detector.getDayStatusHaveNewData(account(), days);
        EXPECT_TRUE(days.empty());
        return result;
    }

    TempDir m_dir;
};

TEST_F(NewDataTest, WhatCountsAsDeviceDateAndType) {
    EXPECT_EQ(due(), Lines{}); // no account directory
    for (const char* file : {
             "devid_/20121231/A/0/0.dat", // taken
             "devid_7/20121399/A/0/0.dat",
             "devid_7/20991231/A/0/0.dat", // taken
             "devid_7/20000001/A/0/0.dat",
             "devid_7/21111110/A/0/0.dat", // taken
             "devid_7/20000000/A/0/0.dat",
             "devid_7/21111111/A/0/0.dat", // out of range
             "devid_7/2012123/A/0/0.dat",
             "devid_7/2012123a/A/0/0.dat", // no dates
             "devid_7/201212311/A/0/0.dat",
             "devid_7/x0121231/A/0/0.dat", //
             "devid_7/2012x231/A/0/0.dat",
             "devid_7/+2012123/A/0/0.dat", //
             "devid_7/20130101/B/0/0.dat",
             "devid_7/20130102/A/0/1.dat", // no file 0 of type A
             "devid_7/20130103/A/1/0.dat",
             "devid_7/20130104/0/0.dat", //
             "devid/20130105/A/0/0.dat",
             "x/devid_1/20130105/A/0/0.dat", // no devices
             "devid_plain_file",
             "devid_7/20130106", // files
             "20130107/A/0/0.dat",
             "xdevid_1/20130107/A/0/0.dat", //
         }) {
        put(file);
    }
    EXPECT_EQ(due(),
              (Lines{"20000001 devid_7 -1 0", "20121231 devid_ -1 0", "20121399 devid_7 -1 0",
                     "20991231 devid_7 -1 0", "21111110 devid_7 -1 0"}));
    // Once a date is known, every directory with the mark in its name is one of its devices.
    put("xdevid_1/20121231/A/0/0.dat");
    put("devid_10/20121231/A/0/0.dat");
    put("devid_9/20121231/A/0/0.dat");
    const Lines all = due();
    EXPECT_EQ(Lines(all.begin() + 1, all.begin() + 5),
              (Lines{"20121231 devid_ -1 0", "20121231 devid_10 -1 0", "20121231 devid_9 -1 0",
                     "20121231 xdevid_1 -1 0"}));
}

TEST_F(NewDataTest, NodeIsDueWhenTheNextFileExists) {
    struct Case {
        Node day;     // of the day file; empty: there is none
        Node pending; // of a new-day file that the day file does not hold; empty: there is none
        Lines files;  // of devid_1 and devid_2
        Lines expected;
    };
    const std::string one = "devid_1/20120303/A/";
    const std::string two = "devid_2/20120303/A/";
    const std::vector<Case> cases = {
        {{}, {}, {one + "0/0.dat"}, {"20120303 devid_1 -1 0"}},
        {{{"devid_1", 7, 500}}, {}, {one + "0/0.dat", one + "0/7.dat"}, {}},
        {{{"devid_1", 7, 500}}, {}, {one + "0/8.dat"}, {"20120303 devid_1 7 500"}},
        {{{"devid_1", 7, 500}}, {}, {one + "0/9.dat"}, {}},
        {{{"devid_1", 99, 5}}, {}, {one + "1/100.dat"}, {"20120303 devid_1 99 5"}},
        {{{"devid_1", 99, 5}}, {}, {one + "0/100.dat"}, {}},
        {{{"devid_1", std::numeric_limits<int32_t>::max(), 5}}, {}, {one + "0/0.dat"}, {}},
        {{{"devid_1", std::numeric_limits<int32_t>::min(), 5}}, {}, {one + "0/0.dat"}, {}},
        // The further of both statuses decides, node by node.
        {{{"devid_1", 3, 30}}, {{"devid_1", 5, 50}}, {one + "0/4.dat", one + "0/5.dat"}, {}},
        {{{"devid_1", 3, 30}}, {{"devid_1", 5, 50}}, {one + "0/6.dat"}, {"20120303 devid_1 5 50"}},
        {{{"devid_2", 3, 30}, {"devid_1", 1, 10}},
         {{"devid_2", 4, 40}, {"devid_1", 0, 9}},
         {one + "0/2.dat", two + "0/5.dat"},
         {"20120303 devid_1 1 10", "20120303 devid_2 4 40"}},
        {{},
         {{"devid_2", 4, 40}},
         {one + "0/0.dat", two + "0/5.dat"},
         {"20120303 devid_1 -1 0", "20120303 devid_2 4 40"}},
        // The date is found through another device than the one that is due.
        {{{"devid_1", 0, 28}}, {}, {one + "0/0.dat", two + "0/0.dat"}, {"20120303 devid_2 -1 0"}},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        const Case& c = cases[i];
        std::filesystem::remove_all(m_dir / "stat");
        std::filesystem::remove_all(m_dir / "devid_");
        for (const std::string& file : c.files) {
            put(file);
        }
        if (!c.day.empty()) {
            writeStatus(dayFile(), 10, c.day);
        }
        if (!c.pending.empty()) {
            writeStatus(newDayFile(11), 11, c.pending);
        }
        EXPECT_EQ(due(), c.expected);
    }
}

TEST_F(NewDataTest, PendingFilesAreThoseAboveTheCounter) {
    put("devid_1/20120303/A/0/9.dat");
    writeStatus(dayFile(), 2, {{"devid_1", 4, 1}});
    // Held by the day file already: whatever they say is not asked for.
    writeStatus(newDayFile(1), 1, {{"devid_1", 8, 1}});
    m_dir.write("stat/acc/new/20120303/2.daycrcsortnew", "damaged");
    EXPECT_EQ(due(), Lines{});
    // Ten comes after nine.
    writeStatus(newDayFile(10), 10, {{"devid_1", 8, 2}});
    writeStatus(newDayFile(9), 9, {{"devid_1", 7, 3}});
    m_dir.write("stat/acc/new/20120303/11.daycrcsortnew.temp", "unfinished");
    EXPECT_EQ(due(), Lines{"20120303 devid_1 8 2"});
    // However many devices a date has, each status is read once.
    put("devid_2/20120303/A/0/0.dat");
    put("devid_3/20120303/A/0/0.dat");
    CountingPlatform counting;
    const test::ScopedPlatform scope(counting);
    EXPECT_EQ(due().size(), 3U);
    EXPECT_EQ(counting.opened, 3);
}

// The call fails once; the damaged file lies in "debug" and the next call goes by what is left.
TEST_F(NewDataTest, DamagedStatusIsSetAside) {
    struct Case {
        std::string file;
        bool backup;
        Lines next;
    };
    const auto setUp = [&] {
        std::filesystem::remove_all(m_dir / "stat");
        writeStatus(dayFile(), 3, {{"devid_1", 4, 40}});
        writeStatus(newDayFile(4), 4, {{"devid_1", 6, 60}});
    };
    for (const char* number : {"0", "3", "5", "7"}) {
        put("devid_1/20120303/A/0/" + std::string(number) + ".dat");
    }
    const std::vector<Case> cases = {
        {dayFile(), false, {"20120303 devid_1 6 60"}},
        {dayFile(), true, {"20120303 devid_1 6 60"}},
        {newDayFile(4), false, {"20120303 devid_1 4 40"}},
    };
    for (const Case& c : cases) {
        setUp();
        if (c.backup) {
            writeStatus(names::backupOf(c.file), 2, {{"devid_1", 2, 20}});
        }
        auto bytes = test::readBytes(c.file);
        bytes[bytes.size() - 9] ^= 1; // last byte of the last entry
        test::writeBytes(c.file, bytes);
        EXPECT_EQ(failingCall(), -1);
        EXPECT_EQ(std::filesystem::exists(c.file), c.backup);
        EXPECT_FALSE(std::filesystem::exists(names::backupOf(c.file)));
        const auto debug = std::filesystem::directory_iterator(m_dir / "stat/debug/20120303");
        EXPECT_EQ(std::distance(begin(debug), end(debug)), 1);
        EXPECT_EQ(due(), c.next);
    }
    setUp();
    test::writeBytes(dayFile(), {});
    EXPECT_EQ(failingCall(), -1);
    EXPECT_FALSE(std::filesystem::exists(dayFile()));
}

TEST_F(NewDataTest, PathsAtTheLimit) {
    // A device whose log files cannot be named is left out, the others are not.
    put("devid_1/20120303/A/0/0.dat");
    const size_t room = g_maxPath - nodePath("", g_date).size() - std::string("/A/0/0.dat").size();
    const std::string longest = "devid_2" + std::string(room - 7, 'x');
    for (const std::string& device : {longest, longest + "x"}) {
        std::filesystem::create_directories(nodePath(device, g_date) + "/A/0");
        std::ofstream(nodePath(device, g_date) + "/A/0/0.dat");
    }
    EXPECT_EQ(due(), (Lines{"20120303 devid_1 -1 0", "20120303 " + longest + " -1 0"}));

    UrlFileNewData detector;
    const std::string node = nodePath(longest, g_date);
    EXPECT_EQ(detector.haveNewData(node, -1), 1);
    EXPECT_EQ(detector.haveNewData(node, 8), 0);
    EXPECT_EQ(detector.haveNewData(node, 9), -1);
    EXPECT_EQ(detector.haveNewData(""), -1);
    // A status that names such a node fails the call.
    writeStatus(dayFile(), 0, {{longest, 9, 1}});
    EXPECT_EQ(failingCall(), -1);
}

class FailingFind : public test::ForwardingPlatform {
public:
    std::string failOn; // the pattern ends so
    uint32_t error = 5;
    uint32_t lastError() const override { return error; }
    int find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) override {
        if (!pattern.ends_with(failOn)) {
            return ForwardingPlatform::find(pattern, entries, step);
        }
        step = FindStep::First;
        return -1;
    }
};

TEST_F(NewDataTest, ListingFailuresOtherThanNotFound) {
    put("devid_1/20120303/A/0/0.dat");
    FailingFind failing;
    const test::ScopedPlatform scope(failing);
    for (const char* pattern : {"acc/devid_*", "devid_1/*"}) {
        failing.failOn = pattern;
        failing.error = 5;
        EXPECT_EQ(failingCall(), -1) << pattern;
        for (const uint32_t error : {g_errorFileNotFound, g_errorPathNotFound}) {
            failing.error = error;
            EXPECT_EQ(due(), Lines{}) << pattern;
        }
    }
    failing.error = 5;
    failing.failOn = "acc/*"; // the devices of a date
    EXPECT_EQ(failingCall(), -1);
}

TEST(AbstractNewData, NodesOfADetectorThatAnswers) {
    class Detector : public AbstractNewData {
    public:
        int haveNewData(const std::string& nodePath) override {
            return nodePath.find("20120302") != std::string::npos ? answer : 1;
        }
        int answer = 0;
    };
    const TempDir dir;
    for (const char* node : {"devid_2/20120301/A", "devid_10/20120303/A", "devid_10/20120302/A",
                             "devid_10/20120301/A"}) {
        dir.makeDirs(node);
    }
    dir.write("devid_2/20120304/A"); // a file
    Detector detector;
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_EQ(detector.getAllNews(dir.path()), 0);
        EXPECT_EQ(detector.newNodes(),
                  (Lines{dir / "devid_10/20120301/A", dir / "devid_10/20120303/A",
                         dir / "devid_2/20120301/A"}));
    }
    detector.answer = -1;
    EXPECT_EQ(detector.getAllNews(dir.path()), -1);
    EXPECT_EQ(detector.getAllDevice(dir.path(), nullptr), -1);
    AbstractNewData base;
    EXPECT_EQ(base.haveNewData("x"), -1);
}

} // namespace
} // namespace kestrine
