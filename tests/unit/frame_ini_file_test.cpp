#include "frame/ini_file.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

namespace kestrine {
namespace {

TEST(IniFile, FindsValues) {
    struct Case {
        const char* text;
        const char* value; // of section "s", key "k"; null: none
    };
    const Case cases[] = {
        {"[s]\nk=v\n", "v"},
        {"[s]\r\nk=v\r\n", "v"},
        {"[s]\nk=v", "v"},
        {"[s]\nk = v \n", "v "},         // one blank on each side of '='
        {"[s]\nk =  v\n", " v"},         // the second stays
        {"[s]\nk  =v\n", nullptr},       // and belongs to the key
        {"[s]\nk\t=v\n", nullptr},       // a tab is no blank
        {"[s]\n\t  k=v\n", "v"},         // leading white space
        {"[s]\nk=a=b;c#d\n", "a=b;c#d"}, // first '=' only, no comments behind values
        {"[s]\nk=\n", ""},
        {"[s]\nk= \r\n", ""},
        {"[s]\nk=1\nk=2\n", "1"},          // the first of two
        {"[s]\nx=1\n[s]\nk=2\n", nullptr}, // the first place of a section
        {"[s]\nK=v\n", nullptr},
        {"[S]\nk=v\n", nullptr},
        {"[t]\nk=1\n[s]\nk=2\n", "2"},
        {"[s] \nk=v\n", nullptr}, // blank behind the bracket
        {"[s]", nullptr},         // no line end: the name is "s]"
        {" [s]\nk=v\n", "v"},
        {"[s\nk=v\n", nullptr},
        {"k=1\n=2\nno equals\n[s]\n=3\nk\n;k=4\n#k=5\n\n \r\nk=6\n", "6"},
    };
    const test::TempDir dir;
    int number = 0;
    for (const Case& one : cases) {
        IniFile ini;
        ASSERT_EQ(ini.load(dir.write(std::to_string(number++), one.text)), 0);
        const auto value = ini.find("s", "k");
        EXPECT_EQ(value, one.value ? std::optional<std::string_view>(one.value) : std::nullopt)
            << one.text;
    }
}

TEST(IniFile, SectionNames) {
    const test::TempDir dir;
    IniFile ini;
    ASSERT_EQ(ini.load(dir.write("x", "[a]b]\r\nk=1\n[]\nk=2\n[c]")), 0);
    EXPECT_EQ(ini.integer("a]b", "k"), 1);
    EXPECT_EQ(ini.integer("", "k"), 2);
    EXPECT_EQ(ini.integer("c", "k"), 0);
}

TEST(IniFile, LinesEndAtTheLimit) {
    const test::TempDir dir;
    const std::string longLine = "k=" + std::string(65535 - 2, 'v');
    IniFile ini;
    ASSERT_EQ(ini.load(dir.write("x", "[s]\n" + longLine + "z=1\nend=2\n")), 0);
    EXPECT_EQ(ini.find("s", "k"), longLine.substr(2));
    EXPECT_EQ(ini.find("s", "z"), "1"); // what is left over is a line of its own
    EXPECT_EQ(ini.find("s", "end"), "2");
}

TEST(IniFile, ManyKeysFillManyChunks) {
    std::string text = "[s]\n";
    for (int i = 0; i < 300; ++i) {
        text += "key" + std::to_string(i) + "=" +
                std::string(10000, static_cast<char>('a' + i % 26)) + "\n";
    }
    const test::TempDir dir;
    IniFile ini;
    ASSERT_EQ(ini.load(dir.write("x", text)), 0);
    for (const int i : {0, 104, 105, 209, 299}) {
        EXPECT_EQ(ini.find("s", "key" + std::to_string(i)),
                  std::string(10000, static_cast<char>('a' + i % 26)));
    }
}

TEST(IniFile, ReadsAgainOnlyWhatHasChanged) {
    const test::TempDir dir;
    const std::string path = dir.write("x", "[s]\nk=1\n");
    const auto stamp = std::filesystem::last_write_time(path);
    IniFile ini;
    ASSERT_EQ(ini.load(path), 0);

    dir.write("x", "[s]\nk=2\n");
    std::filesystem::last_write_time(path, stamp);
    EXPECT_EQ(ini.load(path), 0);
    EXPECT_EQ(ini.integer("s", "k"), 1);

    std::filesystem::last_write_time(path, stamp + std::chrono::seconds(2));
    EXPECT_EQ(ini.load(path), 0);
    EXPECT_EQ(ini.integer("s", "k"), 2);

    EXPECT_EQ(ini.load(dir / "missing"), -1);
    EXPECT_EQ(ini.find("s", "k"), std::nullopt);
    EXPECT_EQ(ini.load(path), 0);
    EXPECT_EQ(ini.integer("s", "k"), 2);
    EXPECT_EQ(ini.load(dir.makeDirs("directory")), -1);
}

TEST(LeadingInteger, StopsAtTheFirstOtherCharacter) {
    constexpr int32_t max = std::numeric_limits<int32_t>::max();
    constexpr int32_t min = std::numeric_limits<int32_t>::min();
    const std::pair<const char*, int32_t> cases[] = {
        {"", 0},
        {"abc", 0},
        {"64K", 64},
        {"  7", 7},
        {"-5", -5},
        {"+5", 5},
        {"- 5", 0},
        {"007", 7},
        {"2147483647", max},
        {"1e9", 1},
        {"2147483648", max},
        {"-2147483648", min},
        {"--1", 0},
        {"99999999999999999999999", max},
        {"-99999999999999999999999", min},
    };
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(leadingInteger(text), value) << text;
    }
}

TEST(BlockPool, FillsEachChunkToItsEnd) {
    BlockPool pool;
    uint8_t* const first = pool.allocate(BlockPool::g_chunkSize - 5);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(pool.allocate(5), first + BlockPool::g_chunkSize - 5); // exactly what is left
    uint8_t* const next = pool.allocate(1);
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(pool.allocate(1), next + 1);
    EXPECT_NE(pool.allocate(BlockPool::g_chunkSize), nullptr);

    testing::internal::CaptureStdout();
    EXPECT_EQ(pool.allocate(BlockPool::g_chunkSize + 1), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "file:blockalloc, line:46, assert bug !!!!!\n");
    first[BlockPool::g_chunkSize - 1] = 1; // still there
    pool.release();
    EXPECT_NE(pool.allocate(1), nullptr);
}

} // namespace
} // namespace kestrine
