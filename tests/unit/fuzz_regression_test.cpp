// Inputs found by the fuzz targets, each with the promise that it once broke.
#include "merge/merge_file_list.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

class FuzzRegressionTest : public StatTree {
protected:
    // One raw block of these records under a header that claims `total`.
    void putBlock(const std::string& name, const TestRecords& records, int64_t total) {
        BlockHeader header{records.front().key, records.back().key, total};
        std::vector<uint8_t> data;
        for (const TestRecord& record : records) {
            data.resize(data.size() + record.view().size());
            record.view().store(data.data() + data.size() - record.view().size());
        }
        header.count = static_cast<int32_t>(records.size());
        header.blockSize = header.rawSize = static_cast<int32_t>(data.size());
        UrlFile file;
        ASSERT_EQ(file.open(m_dir / name, OpenMode::Truncate), 0);
        ASSERT_EQ(file.writeBlockHeader(header), 0);
        ASSERT_EQ(file.writeBlockData(data), 0);
        ASSERT_EQ(file.writeStatus(m_status), 0);
        ASSERT_EQ(file.close(), 0);
    }

    // The engine's result; `broken` names the inputs that it blames.
    int merge(const std::vector<std::string>& names, std::vector<std::string>& broken) {
        std::vector<std::unique_ptr<UrlFile>> files;
        std::vector<UrlFile*> inputs;
        for (const std::string& name : names) {
            inputs.push_back(files.emplace_back(std::make_unique<UrlFile>()).get());
            EXPECT_EQ(inputs.back()->open(m_dir / name, OpenMode::Read), 0);
            EXPECT_EQ(inputs.back()->readStatus(g_dayStatusType), 0);
        }
        UrlFile output;
        EXPECT_EQ(output.open(m_dir / "out", OpenMode::Truncate), 0);
        const int result = m_engine.commonMergeProcess(&output, inputs);
        for (size_t i = 0; i < names.size(); ++i) {
            if (inputs[i]->broken()) {
                broken.push_back(names[i]);
            }
        }
        if (result == 0) {
            EXPECT_EQ(output.writeStatus(m_status), 0);
        }
        EXPECT_EQ(output.close(), 0);
        return result;
    }

    const DayStatus m_status = dayStatusOf({{"d/acc/devid_1/20120303", 3, 17}}, 5);
    MergeFileList m_engine;
};

// A count that no writer writes made a block that the output refused: the merge failed, no input
// was to blame, and so it failed again for ever.
TEST_F(FuzzRegressionTest, CountsThatAreNeverWrittenBreakTheirFile) {
    writeUrlFile(m_dir / "good", {{{8, 2, 0, "eight"}, {16, 2, 0, "sixteen"}}}, m_status);
    for (const uint64_t count : {uint64_t{0}, uint64_t{1} << 63, ~uint64_t{0}}) {
        putBlock("bad", {{3, count, 0, "three"}, {30, 1, 0, "thirty"}}, 1);
        EXPECT_TRUE(readUrlFile(m_dir / "bad").broken) << count;
        std::vector<std::string> broken;
        EXPECT_EQ(merge({"good", "bad"}, broken), -1) << count;
        EXPECT_EQ(broken, std::vector<std::string>{"bad"}) << count;
    }
}

// Counts that are valid one by one: no sum of them makes an output that cannot be written.
TEST_F(FuzzRegressionTest, SumsOfCountsDoNotOverflow) {
    constexpr uint64_t most = INT64_MAX;
    const TestRecord eight{8, most, 0, "eight"};
    const TestRecord nine{9, 1, 0, "nine"};
    const TestRecord sixteen{16, most, 0, "sixteen"};
    // Each file as the writer would have written it, which begins a block where the sum is full.
    writeUrlFile(m_dir / "both", {{eight, sixteen}}, m_status);
    writeUrlFile(m_dir / "one", {{eight}}, m_status);
    putBlock("wide", {{8, 1, 0, "eight"}, nine}, most); // the header's sum is not true
    const TestRecords expected = {eight, sixteen};
    std::vector<std::string> broken;
    ASSERT_EQ(merge({"one", "both"}, broken), 0); // records of one key
    EXPECT_EQ(readUrlFile(m_dir / "out").records, expected);
    ASSERT_EQ(merge({"both", "wide"}, broken), 0); // a record to be folded into a block
    EXPECT_EQ(readUrlFile(m_dir / "out").records, (TestRecords{eight, nine, sixteen}));
    ASSERT_EQ(merge({"wide", "one", "both"}, broken), 0);
    EXPECT_EQ(readUrlFile(m_dir / "out").records, (TestRecords{eight, nine, sixteen}));
    EXPECT_TRUE(broken.empty());
}

} // namespace
} // namespace kestrine
