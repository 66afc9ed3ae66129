#include "merge/merge_file_list.h"
#include "support/failing_platform.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

#include <functional>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_date = "20120303";

class MergeOperationsTest : public StatTree {
protected:
    // One operation over a tree that holds a day file with new-day file 0, a week file with it, the
    // new-day files 1 and 2, two temporary files, and top lists.
    struct Operation {
        const char* name;
        std::string output;
        uint32_t type;
        TestRecords records;
        std::function<int(MergeFileList&)> run;
    };

    void SetUp() override {
        putDay(g_date, 0);
        putNew(g_date, 1);
        putNew(g_date, 2);
        put(m_week, upTo(0, g_date), weekMonStatusOf({{newDir(g_date), 0}}));
        put(m_temps[0], recordsOf(5, g_date), m_status);
        put(m_temps[1], recordsOf(6, g_date), m_status);
        m_disk.files[m_dayDir + "/topn/all.top"] = {1};
        m_disk.files[m_weekDir + "/topn/all.top"] = {1};
        m_before = m_disk.files;
    }

    std::vector<Operation> operations() {
        const TestRecords all = upTo(2, g_date);
        const TestRecords temps = summed({recordsOf(5, g_date), recordsOf(6, g_date)});
        const std::string month = std::string(g_accountDir) + "/mon20120301_20120331/moncrcsort";
        const std::vector<std::string> files = {newFile(g_date, 1), newFile(g_date, 2)};
        return {
            {"temp to temp", m_tempDir + "1.temp", g_dayStatusType, temps,
             [this](MergeFileList& list) {
                 return list.mergeTemp2Temp(m_temps, m_status, m_tempDir + "1.temp");
             }},
            {"temp to new", newFile(g_date, 3), g_dayStatusType, temps,
             [this](MergeFileList& list) {
                 return list.mergeTemp2New(m_temps, m_status, newFile(g_date, 3));
             }},
            {"empty new",
             newFile(g_date, 3),
             g_dayStatusType,
             {},
             [this](MergeFileList& list) {
                 return list.mergeTemp2New({}, m_status, newFile(g_date, 3));
             }},
            {"day", dayFile(g_date) + ".temp", g_dayStatusType, all,
             [this, files](MergeFileList& list) {
                 return list.mergeNew2Day(files, dayFile(g_date) + ".temp");
             }},
            {"week", m_week + ".temp", g_weekMonStatusType, all,
             [this, files](MergeFileList& list) {
                 return list.mergeNew2WeekMon(files, {}, m_week + ".temp");
             }},
            {"lost month", month + ".temp", g_weekMonStatusType, upTo(0, g_date),
             [this, files, month](MergeFileList& list) {
                 return list.mergeNew2WeekMon(files, {dayFile(g_date)}, month + ".temp");
             }},
        };
    }

    const std::string m_dayDir = std::string(g_accountDir) + "/" + g_date;
    const std::string m_weekDir = std::string(g_accountDir) + "/week20120226_20120303";
    const std::string m_week = m_weekDir + "/weekcrcsort";
    const std::string m_tempDir = std::string(g_accountDir) + "/diskTemp/" + g_date + "/";
    const std::vector<std::string> m_temps = {g_memoryDisk + std::string("/acc/20120303/0.temp"),
                                              g_memoryDisk + std::string("/acc/20120303/1.temp")};
    const DayStatus m_status = dayStatusOf({{node(g_date), 4, 28}}, 3);
    std::map<std::string, MemoryDisk::Bytes> m_before;
};

// Nothing else changes but the top lists, which go with a new day, week or month file.
TEST_F(MergeOperationsTest, WriteTheirOutputAlone) {
    for (const Operation& operation : operations()) {
        SCOPED_TRACE(operation.name);
        m_disk.files = m_before;
        m_disk.files[operation.output + ".temp"] = {1, 2, 3}; // left over
        MergeFileList list;
        ASSERT_EQ(operation.run(list), 0);
        EXPECT_EQ(m_disk.openNow(), 0U);
        const UrlFileContent content = readUrlFile(operation.output, operation.type);
        EXPECT_TRUE(content.whole);
        EXPECT_EQ(content.records, operation.records);
        m_disk.files.erase(operation.output);
        const std::string lists = std::string(names::parentOf(operation.output)) + "/topn/all.top";
        m_disk.files.try_emplace(lists, MemoryDisk::Bytes{1});
        auto wanted = m_before;
        wanted.try_emplace(lists, MemoryDisk::Bytes{1});
        EXPECT_EQ(difference(m_disk.files, wanted), "");
    }
}

TEST_F(MergeOperationsTest, LeaveNothingAfterAStop) {
    g_isRunning = 0;
    for (const Operation& operation : operations()) {
        MergeFileList list;
        EXPECT_EQ(operation.run(list), 1) << operation.name;
        EXPECT_EQ(difference(m_disk.files, m_before), "") << operation.name;
        EXPECT_EQ(m_disk.openNow(), 0U);
    }
}

// Every failing change, once and from then on: the output is complete or not there, the inputs are
// as before, nothing stays open.
TEST_F(MergeOperationsTest, SurviveEveryFailingCall) {
    using Mode = FailingPlatform::Mode;
    for (const Operation& operation : operations()) {
        for (const Mode mode : {Mode::Once, Mode::FromThenOn}) {
            for (int n = 1;; ++n) {
                SCOPED_TRACE(std::string(operation.name) + " " + std::to_string(n));
                m_disk.files = m_before;
                FailingPlatform failing(n, mode, m_disk);
                {
                    const ScopedPlatform scope(failing);
                    MergeFileList list;
                    const int result = operation.run(list);
                    EXPECT_EQ(result, failing.failed() ? -1 : 0);
                }
                EXPECT_EQ(m_disk.openNow(), 0U);
                if (m_disk.files.contains(operation.output)) {
                    const UrlFileContent content = readUrlFile(operation.output, operation.type);
                    EXPECT_TRUE(content.whole);
                    EXPECT_EQ(content.records, operation.records);
                }
                for (const auto& [path, bytes] : m_before) {
                    EXPECT_TRUE(path.ends_with(".top") || m_disk.files[path] == bytes) << path;
                }
                if (mode == Mode::Once) {
                    EXPECT_FALSE(m_disk.files.contains(operation.output + ".temp"));
                }
                if (!failing.failed()) {
                    EXPECT_GT(n, 5);
                    break;
                }
            }
        }
    }
}

TEST_F(MergeOperationsTest, RefuseWhatShouldNotBe) {
    m_disk.files[dayFile(g_date) + ".temp"] = {1};
    m_disk.files[m_week + ".temp"] = {1};
    const auto before = m_disk.files;
    MergeFileList list;
    EXPECT_EQ(list.mergeNew2Day({newFile(g_date, 1)}, dayFile(g_date) + ".temp"), -1);
    EXPECT_EQ(list.mergeNew2WeekMon({newFile(g_date, 1)}, {}, m_week + ".temp"), -1);
    EXPECT_EQ(list.mergeNew2Day({}, "/t/stat/acc/20120304/daycrcsort.temp"), -1);
    EXPECT_EQ(list.mergeNew2Day({newFile(g_date, 1)}, ""), -1);
    EXPECT_EQ(list.mergeNew2Day({"/t/stat/acc/new/20120304/x"}, "/t/stat/acc/20120304/d.temp"), -1);
    EXPECT_EQ(difference(m_disk.files, before), "");
}

// What the day file and two new-day files say of the nodes; the higher file number wins.
TEST_F(MergeOperationsTest, DayMergeCombinesPositions) {
    const auto nodes = [this](int32_t first, int32_t second) {
        return std::vector<NodeEntry>{{node("a"), first, static_cast<uint64_t>(first)},
                                      {node("b"), second, 1000 + static_cast<uint64_t>(second)}};
    };
    put(dayFile(g_date), {}, dayStatusOf({{node("a"), 5, 5}, {node("c"), 9, 9}}, 10));
    put(newFile(g_date, 12), {}, dayStatusOf(nodes(7, -1), 12));
    DayStatus second = dayStatusOf(nodes(6, 0), 13);
    put(newFile(g_date, 13), recordsOf(1, g_date), second);
    // A total that does not match is reported, no more.
    DayStatus wrong = dayStatusOf({{node("d"), 1, 1}}, 14);
    {
        UrlFile file;
        ASSERT_EQ(file.open(newFile(g_date, 14), OpenMode::Truncate), 0);
        wrong.setTotalCount(77);
        ASSERT_EQ(file.writeStatus(wrong), 0);
    }
    MergeFileList list;
    testing::internal::CaptureStdout();
    const int result = list.mergeNew2Day(
        {newFile(g_date, 12), newFile(g_date, 13), newFile(g_date, 14)}, dayFile(g_date) + ".temp");
    const std::string console = testing::internal::GetCapturedStdout();
    ASSERT_EQ(result, 0);
    EXPECT_NE(console.find("total count not match 81 4\n"), std::string::npos);
    EXPECT_NE(console.find("find " + node("a") + ", but id error new fileid 6, old fileid 7\n"),
              std::string::npos);
    const auto status = readUrlFile(dayFile(g_date) + ".temp").dayStatus;
    ASSERT_TRUE(status);
    EXPECT_EQ(status->newCounter(), 14);
    EXPECT_EQ(status->totalCount(), 4U);
    std::map<std::string, std::pair<int32_t, uint64_t>> positions;
    for (const NodeEntry& entry : status->entries()) {
        positions[entry.path] = {entry.fileNumber, entry.offset};
    }
    const std::map<std::string, std::pair<int32_t, uint64_t>> wanted = {
        {node("a"), {7, 7}}, {node("b"), {0, 1000}}, {node("c"), {9, 9}}, {node("d"), {1, 1}}};
    EXPECT_EQ(positions, wanted);
}

// Each damage to each input: it is set aside, a day or week file's backup comes back without the
// lists of the file before, and the rest of the tree is as before.
TEST_F(MergeOperationsTest, SetDamagedInputsAside) {
    const std::function<void(MemoryDisk::Bytes&)> damages[] = {
        [](auto& bytes) { bytes.clear(); },
        [](auto& bytes) { bytes.pop_back(); },
        [](auto& bytes) { bytes.erase(bytes.begin()); },
        [](auto& bytes) { bytes.back() ^= 0x40; },          // end position
        [](auto& bytes) { bytes[bytes.size() - 30] ^= 1; }, // status body; week: a path
        [](auto& bytes) { bytes[39] ^= 0x80; },             // number of records of the block
    };
    const MemoryDisk::Bytes backup = {9};
    struct Case {
        size_t operation;
        std::string input;
        bool hasBackup;
    };
    const Case cases[] = {{0, m_temps[1], false},         {1, m_temps[0], false},
                          {3, newFile(g_date, 2), true},  {3, dayFile(g_date), true},
                          {3, dayFile(g_date), false},    {4, m_week, true},
                          {4, newFile(g_date, 1), false}, {5, dayFile(g_date), true}};
    for (const auto& [number, input, hasBackup] : cases) {
        for (size_t damage = 0; damage < std::size(damages); ++damage) {
            if (input == m_week && damage == 4) {
                continue; // the checksum of such a status is not looked at
            }
            const Operation operation = operations()[number];
            SCOPED_TRACE(std::string(operation.name) + " " + input + " " + std::to_string(damage));
            m_disk.files = m_before;
            damages[damage](m_disk.files[input]);
            if (hasBackup) {
                m_disk.files[input + "_backup"] = backup;
            }
            auto wanted = m_disk.files;
            const MemoryDisk::Bytes broken = wanted[input];
            wanted.erase(input);
            const bool restored = hasBackup && !input.ends_with("new");
            if (restored) {
                wanted[input] = backup;
                wanted.erase(input + "_backup");
                wanted.erase(std::string(names::parentOf(input)) + "/topn/all.top");
            }
            MergeFileList list;
            EXPECT_EQ(operation.run(list), -1);
            EXPECT_EQ(m_disk.openNow(), 0U);
            size_t setAside = 0;
            for (const auto& [path, bytes] : m_disk.files) {
                if (path.find("/debug/") != std::string::npos) {
                    EXPECT_EQ(bytes, broken);
                    ++setAside;
                }
            }
            EXPECT_EQ(setAside, 1U);
            std::erase_if(m_disk.files, [](const auto& file) {
                return file.first.find("/debug/") != std::string::npos;
            });
            EXPECT_EQ(difference(m_disk.files, wanted), "");
        }
    }
}

} // namespace
} // namespace kestrine
