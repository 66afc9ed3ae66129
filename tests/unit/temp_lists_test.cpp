#include "merge/disk_temp_file_list.h"
#include "merge/mem_file_list.h"
#include "support/failing_platform.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_date = "20120303";
constexpr const char* g_nextDate = "20120304";

class TempListsTest : public StatTree {
protected:
    DayStatus statusOf(const std::string& date, int32_t file) {
        return dayStatusOf({{node(date), file, 28}});
    }
    // A temporary file with the records of that number; its path.
    std::string putTemp(const std::string& where, const std::string& date, int32_t number) {
        return put(where + "/" + date + "/" + std::to_string(number) + ".temp",
                   recordsOf(number, date), statusOf(date, number));
    }
    std::string putMemory(const std::string& date, int32_t number) {
        return putTemp(g_memoryDisk + std::string("/acc"), date, number);
    }
    std::string putDisk(const std::string& date, int32_t number) {
        return putTemp(diskTemp, date, number);
    }
    void expectNew(const std::string& date, int32_t number, const TestRecords& records,
                   int32_t file) {
        const UrlFileContent content = readUrlFile(newFile(date, number));
        EXPECT_TRUE(content.whole);
        EXPECT_EQ(content.records, records);
        ASSERT_TRUE(content.dayStatus);
        EXPECT_EQ(content.dayStatus->newCounter(), number);
        ASSERT_EQ(content.dayStatus->entries().size(), 1U);
        EXPECT_EQ(content.dayStatus->entries()[0].fileNumber, file);
    }
    size_t below(const std::string& directory) { return m_disk.names(directory).size(); }

    const std::string diskTemp = std::string(g_accountDir) + "/diskTemp";
    const std::string debug = std::string(g_root) + "/debug";
};

TEST_F(TempListsTest, NextNumberIsAboveWaitingFilesAndDayFile) {
    const struct {
        std::vector<std::string> names; // entries of the "new" directory
        int32_t dayCounter;             // -2: no day file
        int32_t next;
    } cases[] = {{{}, -2, 0},
                 {{"0"}, -2, 1},
                 {{"3", "12"}, -2, 13}, // numbers, not names, are compared
                 {{}, 7, 8},
                 {{}, -1, 0},
                 {{"3"}, 7, 8},
                 {{"8", "9"}, 7, 10},
                 {{"x", "", "3x", "-4", "0x20", "2147483648"}, -2, 0},
                 {{"77/", "2"}, -2, 3}};
    for (const auto& [names, dayCounter, next] : cases) {
        m_disk.files.clear();
        for (const std::string& name : names) {
            const bool directory = name.ends_with('/');
            const std::string path =
                newDir(g_date) + "/" + name.substr(0, name.find('/')) + ".daycrcsortnew";
            m_disk.files[directory ? path + "/file" : path] = {};
        }
        if (dayCounter != -2) {
            putDay(g_date, dayCounter);
        }
        int32_t counter = -5;
        EXPECT_EQ(DiskTempFileList::getNextNewCounter(newDir(g_date), counter), 0);
        EXPECT_EQ(counter, next) << testing::PrintToString(names) << dayCounter;
        EXPECT_EQ(m_disk.openNow(), 0U);
    }
}

TEST_F(TempListsTest, UnreadableDayFileGivesWayToItsBackup) {
    for (const bool hasBackup : {true, false}) {
        m_disk.files.clear();
        m_disk.files[dayFile(g_date)] = {1, 2, 3};
        const std::string topList =
            names::topAllFile(names::topDir(names::parentOf(dayFile(g_date))));
        m_disk.files[topList] = {};
        if (hasBackup) {
            put(dayFile(g_date) + "_backup", upTo(4, g_date),
                dayStatusOf({{node(g_date), 4, 28}}, 4));
        }
        DiskTempFileList list;
        list.add(putDisk(g_date, 1), statusOf(g_date, 1));
        EXPECT_EQ(list.mergeDiskTempFile(), -1);
        EXPECT_EQ(below(newDir(g_date)), 0U);
        EXPECT_EQ(m_disk.files.contains(dayFile(g_date)), hasBackup);
        EXPECT_EQ(m_disk.files.contains(topList), !hasBackup); // the start-up check takes it then
        EXPECT_EQ(list.mergeDiskTempFile(), 0);                // a later run
        expectNew(g_date, hasBackup ? 5 : 0, recordsOf(1, g_date), 1);
    }
}

// Empty and real paths side by side. A date that comes back after another one stays one file: a
// part of it would not hold what its positions say.
TEST_F(TempListsTest, DiskTempsBecomeOneNewDayFileForEachDate) {
    DiskTempFileList list;
    list.add("", statusOf(g_date, 0));
    list.add(putDisk(g_date, 1), statusOf(g_date, 1));
    list.add("", statusOf(g_date, 2));
    list.add(putDisk(g_date, 3), statusOf(g_date, 1)); // behind: the position stays
    list.add("", statusOf(g_nextDate, 7));
    list.add("", statusOf(g_nextDate, 8));
    list.add(putDisk(g_date, 4), statusOf(g_date, 9));
    putNew(g_nextDate, 4);
    EXPECT_EQ(list.mergeDiskTempFile(), 0);
    EXPECT_TRUE(list.empty());
    expectNew(g_date, 0, summed({recordsOf(1, g_date), recordsOf(3, g_date), recordsOf(4, g_date)}),
              9);
    expectNew(g_nextDate, 5, {}, 8);
    EXPECT_EQ(m_disk.names(newDir(g_date)).size(), 1U);
    EXPECT_EQ(below(diskTemp), 0U); // files and directories of dates
    EXPECT_EQ(list.mergeDiskTempFile(), 0);
}

TEST_F(TempListsTest, DroppedDatesLeaveNothing) {
    DiskTempFileList list;
    for (const std::string date : {g_date, g_nextDate}) {
        list.add(putDisk(date, 1), statusOf(date, 1));
        list.add("", statusOf(date, 2));
        list.add(putDisk(date, 2), statusOf(date, 2));
    }
    list.dropDate(20120303);
    EXPECT_EQ(m_disk.names(diskTemp),
              (std::set<std::string>{"20120304/1.temp", "20120304/2.temp"}));
    list.dropDate(20120303);
    EXPECT_FALSE(list.empty());
    list.dropDate(20120304);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(below(diskTemp), 0U);
    EXPECT_EQ(list.mergeDiskTempFile(), 0);
    EXPECT_EQ(below(g_root), 0U);
}

// The first failure stops the work; what is left over is merged by a later call, nothing twice.
TEST_F(TempListsTest, AFailureLeavesTheRestForLater) {
    for (int n = 1;; ++n) {
        m_disk.files.clear();
        m_disk.directories.clear();
        DiskTempFileList list;
        list.add(putDisk(g_date, 1), statusOf(g_date, 1));
        list.add(putDisk(g_nextDate, 2), statusOf(g_nextDate, 2));
        FailingPlatform failing(n, FailingPlatform::Mode::Once, m_disk);
        const ScopedPlatform scope(failing);
        const int result = list.mergeDiskTempFile();
        if (!failing.failed()) {
            EXPECT_GT(n, 20);
            break;
        }
        SCOPED_TRACE(n);
        // Removing the directory of a date is not worth a failure.
        EXPECT_TRUE(result == -1 || below(newDir(g_nextDate)) == 1);
        for (const auto& [date, number] : {std::pair(g_date, 1), {g_nextDate, 2}}) {
            if (m_disk.files.contains(newFile(date, 0))) {
                expectNew(date, 0, recordsOf(number, date), number);
            } else {
                EXPECT_EQ(result, -1);
                EXPECT_TRUE(m_disk.files.contains(diskTemp + "/" + date + "/" +
                                                  std::to_string(number) + ".temp"));
            }
        }
        EXPECT_EQ(m_disk.openNow(), 0U);
    }
    // A path that no system takes, and a list that is not there.
    DayStatus status = dayStatusOf({{"/l/" + std::string(250, 'a') + "/devid_1/20120303", 1, 0}});
    DiskTempFileList list;
    list.add("", status);
    EXPECT_EQ(list.mergeDiskTempFile(), -1);
    MemFileList memory;
    EXPECT_EQ(memory.mergeFileList(nullptr), -1);
}

TEST_F(TempListsTest, MemoryDiskGroupsBecomeDiskTemps) {
    MemFileList memory;
    EXPECT_FALSE(memory.hasFiles());
    EXPECT_EQ(memory.lastGroupSize(), 0U);
    uint64_t bytes = 0;
    const auto addGroup = [&](const std::string& date, const std::vector<int32_t>& numbers) {
        memory.openGroup();
        for (const int32_t number : numbers) {
            const std::string path = putMemory(date, number);
            EXPECT_EQ(memory.addUrlFile(path), 0);
            bytes += m_disk.files[path].size();
        }
        memory.setLastStatus(statusOf(date, 5));
        if (!numbers.empty()) {
            memory.setLastOutput(diskTemp + "/" + date + "/" + std::to_string(numbers[0]) +
                                 ".temp");
        }
        EXPECT_EQ(memory.lastGroupSize(), numbers.size());
        EXPECT_EQ(memory.totalSize(), bytes);
    };
    addGroup(g_date, {1, 2, 3});
    addGroup(g_date, {});
    addGroup(g_nextDate, {4});
    EXPECT_EQ(memory.addUrlFile("/t/mem/missing"), -1);
    const auto before = m_disk.files;

    DiskTempFileList list;
    g_isRunning = 0; // a stop: everything stays
    EXPECT_EQ(memory.mergeFileList(&list), 1);
    EXPECT_EQ(difference(m_disk.files, before), "");
    EXPECT_TRUE(list.empty());
    g_isRunning = 1;
    { // the second group with files fails: the first is done with, the rest stays
        m_disk.files["/t/mem/acc/20120304/4.temp"].pop_back();
        EXPECT_EQ(memory.mergeFileList(&list), -1);
        EXPECT_EQ(m_disk.names(diskTemp).count("20120303/1.temp"), 1U);
        EXPECT_EQ(below(g_memoryDisk + std::string("/acc")), 0U);
        EXPECT_EQ(memory.totalSize(), before.at("/t/mem/acc/20120304/4.temp").size());
        m_disk.files["/t/mem/acc/20120304/4.temp"] = before.at("/t/mem/acc/20120304/4.temp");
    }
    EXPECT_EQ(memory.mergeFileList(&list), 0);
    EXPECT_EQ(memory.totalSize(), 0U);
    EXPECT_FALSE(memory.hasFiles());
    EXPECT_EQ(list.mergeDiskTempFile(), 0);
    expectNew(g_date, 0, summed({recordsOf(1, g_date), recordsOf(2, g_date), recordsOf(3, g_date)}),
              5);
    expectNew(g_nextDate, 0, recordsOf(4, g_nextDate), 5);

    bytes = 0;
    addGroup(g_date, {1});
    addGroup(g_nextDate, {2, 3});
    memory.dropLastGroup();
    EXPECT_EQ(m_disk.names(g_memoryDisk + std::string("/acc")),
              (std::set<std::string>{"20120303/1.temp"}));
    EXPECT_EQ(memory.totalSize(), m_disk.files["/t/mem/acc/20120303/1.temp"].size());
    memory.dropLastGroup();
    EXPECT_EQ(memory.totalSize(), 0U);
    EXPECT_EQ(below(g_memoryDisk + std::string("/acc")), 0U);
}

} // namespace
} // namespace kestrine
