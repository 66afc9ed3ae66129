#include "input/url_file_new_data.h"
#include "support/failing_platform.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;
using Lines = std::vector<std::string>;
using Nodes = std::vector<NodeEntry>;

// Names that a careless search for the account would stumble over.
const std::string g_data = "data/devid_/log_data/x/log_data/acc";
const std::string g_day = "stat/acc/20120303/daycrcsort";
const std::string g_new = "stat/acc/new/20120303/";

class NewDataTest : public StatTree {
protected:
    NewDataTest() { settings().setUrlStatRoot("stat"); }

    // Log files of the account, "devid_1/20120303/A/0/0.dat".
    void put(const Lines& names) {
        for (const std::string& name : names) {
            m_disk.files[g_data + "/" + name];
        }
    }
    // Progress of devices, "devid_1", 3, 17. None: no file.
    void writeStatus(const std::string& path, int32_t counter, Nodes nodes) {
        for (NodeEntry& node : nodes) {
            node.path = g_data + "/" + node.path + "/20120303";
        }
        if (!nodes.empty()) {
            writeUrlFile(path, {{recordOf("host")}}, dayStatusOf(nodes, counter));
        }
    }
    // "devid_1/20120303 -1 0" for each node that is due, or "failed".
    Lines due() {
        std::vector<DayStatus> days(1);
        if (UrlFileNewData(settings()).getDayStatusHaveNewData(g_data, days) != 0) {
            return {days.empty() ? "failed" : "left over"};
        }
        Lines lines;
        for (const DayStatus& day : days) {
            for (const auto& [path, file, offset] : day.entries()) {
                EXPECT_TRUE(path.starts_with(g_data + "/"));
                lines.push_back(path.substr(g_data.size() + 1) + " " + std::to_string(file) + " " +
                                std::to_string(offset));
            }
        }
        return lines;
    }
};

TEST_F(NewDataTest, WhatCountsAsDeviceDateAndType) {
    EXPECT_EQ(due(), Lines{}); // no account directory
    // Dates out of range or no dates, no file 0 of type A, no devices, files.
    put({"devid_7/20000000/A/0/0.dat", "devid_7/21111111/A/0/0.dat", "devid_7/2012123/A/0/0.dat",
         "devid_7/2012123a/A/0/0.dat", "devid_7/201212311/A/0/0.dat", "devid_7/x0121231/A/0/0.dat",
         "devid_7/2012x231/A/0/0.dat", "devid_7/+2012123/A/0/0.dat", "devid_7/20130101/B/0/0.dat",
         "devid_7/20130102/A/0/1.dat", "devid_7/20130103/A/1/0.dat", "devid_7/20130104/0/0.dat",
         "devid/20130105/A/0/0.dat", "x/devid_1/20130105/A/0/0.dat", "devid_plain_file",
         "devid_7/20130106", "20130107/A/0/0.dat", "xdevid_1/20130107/A/0/0.dat"});
    EXPECT_EQ(due(), Lines{});
    // Once a date is known, every directory with the mark in its name is one of its devices.
    put({"devid_/20121231/A/0/0.dat", "devid_7/20121399/A/0/0.dat", "devid_7/20000001/A/0/0.dat",
         "devid_7/21111110/A/0/0.dat", "xdevid_1/21111110/A/0/0.dat",
         "devid_10/21111110/A/0/0.dat"});
    EXPECT_EQ(due(),
              (Lines{"devid_7/20000001 -1 0", "devid_/20121231 -1 0", "devid_7/20121399 -1 0",
                     "devid_10/21111110 -1 0", "devid_7/21111110 -1 0", "xdevid_1/21111110 -1 0"}));
    for (const char* const pattern : {"acc/devid_*", "devid_7/*", "acc/*"}) {
        FailingPlatform disk(1, FailingPlatform::Mode::FromThenOn, m_disk,
                             FailingPlatform::Calls::Reading);
        disk.concerns = [&](const std::string& path) { return path.ends_with(pattern); };
        const ScopedPlatform scope(disk);
        EXPECT_EQ(due(), Lines{"failed"}) << pattern;
    }
}

TEST_F(NewDataTest, NodeIsDueWhenTheNextFileExists) {
    const std::string one = "devid_1/20120303 ";
    const std::string two = "devid_2/20120303 ";
    // Progress of the day file and of new-day files that it does not hold; file 7 of device 1 is
    // "1/0/7".
    const std::tuple<Nodes, Nodes, Nodes, Lines, Lines> cases[] = {
        {{{"devid_1", 7, 500}}, {}, {}, {"1/0/0", "1/0/7", "1/0/9"}, {}},
        {{{"devid_1", 99, 5}}, {}, {}, {"1/1/100"}, {one + "99 5"}},
        {{{"devid_1", 2147483647, 5}}, {}, {}, {"1/0/0"}, {}},
        // The furthest of all statuses decides, node by node.
        {{{"devid_1", 3, 30}}, {{"devid_1", 5, 50}}, {}, {"1/0/4", "1/0/5"}, {}},
        {{{"devid_1", 4, 1}}, {{"devid_1", 8, 3}}, {{"devid_1", 8, 4}}, {"1/0/9"}, {one + "8 3"}},
        {{}, {{"devid_2", 4, 40}}, {}, {"1/0/0", "2/0/5"}, {one + "-1 0", two + "4 40"}},
        // The date is found through another device than the one that is due.
        {{{"devid_1", 0, 28}}, {}, {}, {"1/0/0", "2/0/0"}, {two + "-1 0"}}};
    for (const auto& [day, ninth, tenth, names, expected] : cases) {
        m_disk.files.clear();
        for (const std::string& name : names) {
            put({"devid_" + std::string(name).replace(1, 1, "/20120303/A/") + ".dat"});
        }
        writeStatus(g_day, 8, day);
        writeStatus(g_new + "9.daycrcsortnew", 9, ninth);
        writeStatus(g_new + "10.daycrcsortnew", 10, tenth);
        m_disk.files[g_new + "11.daycrcsortnew.temp"]; // unfinished
        if (!day.empty()) { // held by the day file already: whatever they say is not asked for
            writeStatus(g_new + "7.daycrcsortnew", 7, {{"devid_1", 8, 1}, {"devid_2", 8, 1}});
            m_disk.files[g_new + "8.daycrcsortnew"]; // damaged
        }
        EXPECT_EQ(due(), expected);
    }
}

// The damaged file lies in "debug". The call fails once where new-day files wait, and the next one
// goes by what is left.
TEST_F(NewDataTest, DamagedStatusIsSetAside) {
    const std::string pending = g_new + "4.daycrcsortnew";
    for (const auto& [file, backup] : {std::pair{g_day, true}, {g_day, false}, {pending, false}}) {
        m_disk.files.clear();
        put({"devid_1/20120303/A/0/5.dat", "devid_1/20120303/A/0/7.dat"});
        writeStatus(g_day, 3, {{"devid_1", 4, 40}});
        writeStatus(pending, 4, {{"devid_1", 6, 60}});
        writeStatus(names::backupOf(g_day), 2, backup ? Nodes{{"devid_1", 2, 20}} : Nodes());
        m_disk.files[file][m_disk.files[file].size() - 9] ^= 1; // last byte of the last entry
        EXPECT_EQ(due(), Lines{"failed"});
        EXPECT_EQ(m_disk.files.contains(file), backup);
        EXPECT_EQ(due(), Lines{file == g_day ? "devid_1/20120303 6 60" : "devid_1/20120303 4 40"});
    }
}

// The week file knows more than the date's own files: positions were lost.
TEST_F(NewDataTest, GoesOnBehindLogsThatAreGoneWithTheirPositions) {
    put({"devid_1/20120303/A/0/3.dat", "devid_1/20120303/A/1/100.dat",
         "devid_2/20120303/A/0/0.dat"});
    EXPECT_EQ(due(), Lines{"devid_2/20120303 -1 0"});
    writeUrlFile("stat/acc/week20120226_20120303/weekcrcsort", {{recordOf("host")}},
                 weekMonStatusOf({{"stat/acc/new/20120303", 4}}));
    EXPECT_EQ(due(), (Lines{"devid_1/20120303 2 0", "devid_2/20120303 -1 0"}));
    writeStatus(g_day, 2, {{"devid_1", 3, 9}}); // an older one came back
    EXPECT_EQ(due(), (Lines{"devid_1/20120303 99 0", "devid_2/20120303 -1 0"}));
    writeStatus(g_day, 4, {{"devid_1", 3, 9}});
    EXPECT_EQ(due(), Lines{"devid_2/20120303 -1 0"});
}

TEST_F(NewDataTest, PathsAtTheLimit) {
    const size_t room = g_maxPath - (g_data + "//20120303/A/0/0.dat").size();
    const std::string longest = "devid_2" + std::string(room - 7, 'x');
    put({longest + "/20120303/A/0/0.dat", longest + "x/20120303/A/0/0.dat"});
    EXPECT_EQ(due(), Lines{longest + "/20120303 -1 0"}); // the other is left out
    writeStatus(g_day, 0, {{longest, 8, 1}});
    EXPECT_EQ(due(), Lines{});
    writeStatus(g_day, 0, {{longest, 9, 1}, {"devid_1", 8, 1}}); // "10.dat" would be too long
    put({"devid_1/20120303/A/0/9.dat"});
    EXPECT_EQ(due(), Lines{"devid_1/20120303 8 1"}); // the date's other nodes go on
    m_disk.files.clear();
    Nodes nodes(15420, {"", 0, 1}); // as many as a status can name
    for (size_t i = 0; i < nodes.size(); ++i) {
        nodes[i].path = "devid_" + std::to_string(i);
    }
    writeStatus(g_day, 0, nodes);
    put({"devid_9/20120304/A/0/0.dat", "devid_15420/20120303/A/0/0.dat"}); // one more
    EXPECT_EQ(due(), Lines{"devid_9/20120304 -1 0"});                      // the other dates go on
}

} // namespace
} // namespace kestrine
