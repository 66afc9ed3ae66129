#include "frame/configuration.h"
#include "frame/data_path.h"
#include "frame/ini_file.h"
#include "frame/text.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using test::TempDir;

TEST(IniFile, FindsValues) {
    // Text of the file, and the value of section "s", key "k".
    const std::pair<const char*, const char*> found[] = {
        {"[s]\r\nk=v\r\n", "v"},
        {"[s]\nk=v", "v"},
        {"\xEF\xBB\xBF[s]\nk=v", "v"},   // a byte-order mark
        {"[s]\nk = v \n", "v "},         // one blank on each side of '='
        {"[s]\n\t  k=  v\n", " v"},      // the second stays
        {"[s]\nk=a=b;c#d\n", "a=b;c#d"}, // first '=' only, no comments behind values
        {"[s]\nk= \r\n", ""},
        {"[a]s]\nk=1\n[]\nk=2\n[s]\nk=3\nk=4", "3"}, // the first of two
        {"k=1\n=2\nno equals\n [s]\n=3\nk\n;k=4\n#k=5\n\n \r\nk=6\n", "6"}};
    // A second blank or a tab belongs to the key, a blank behind the bracket or a missing line end
    // to the section's name; only the first place of a section counts.
    std::vector<std::pair<const char*, const char*>> cases(std::begin(found), std::end(found));
    for (const char* text : {"[s]\nk  =v\n", "[s]\nk\t=v\n", "[s] \nk=v\n", "[s\nk=v\n",
                             "[s]\nx=1\n[s]\nk=2\n", "[s]\nK=v\n", "[S]\nk=v\n"}) {
        cases.emplace_back(text, "none");
    }
    const TempDir dir;
    for (size_t i = 0; i < cases.size(); ++i) { // no two files have one name
        IniFile ini;
        EXPECT_EQ(ini.load(dir.write(std::to_string(i), cases[i].first)), 0);
        EXPECT_EQ(ini.find("s", "k").value_or("none"), cases[i].second) << cases[i].first;
    }
}

TEST(IniFile, LongLinesAndLongFiles) {
    const std::string longest(65535 - 2, 'v'); // of a line; what is left over is one of its own
    std::string text = "[s]\nk=" + longest + "z=1\n";
    const auto value = [](int i) { return std::to_string(i) + std::string(10000, 'x'); };
    for (int i = 0; i < 300; ++i) { // fills many chunks
        text += "key" + std::to_string(i) + "=" + value(i) + "\n";
    }
    const TempDir dir;
    IniFile ini;
    ASSERT_EQ(ini.load(dir.write("x", text)), 0);
    EXPECT_TRUE(ini.find("s", "k") == longest && ini.find("s", "z") == "1");
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(ini.find("s", "key" + std::to_string(i)), value(i));
    }
}

TEST(LeadingInteger, StopsAtTheFirstOtherCharacter) {
    std::string all;
    for (const char* text :
         {"", "abc", "64K", "  7", "-5", "+5", "- 5", "--1", "2147483647", "2147483648",
          "-2147483648", "99999999999999999999999", "-99999999999999999999999"}) {
        all += std::to_string(leadingInteger(text)) + " ";
    }
    EXPECT_EQ(all, "0 0 64 7 -5 5 0 0 2147483647 2147483647 -2147483648 2147483647 -2147483648 ");
}

// ---- the service's settings, read in a directory of the test's own

class Settings : public testing::Test {
protected:
    Settings() { std::filesystem::current_path(m_dir.path()); }
    ~Settings() override {
        Configuration::resetInstance();
        std::filesystem::current_path(m_before);
    }
    // The instance made of a settings file with this line.
    Configuration& load(const std::string& line) {
        m_dir.write("config/urlstat.ini", "[urlstat]\n" + line + "\n");
        Configuration::resetInstance();
        return get();
    }
    Configuration& get() {
        Configuration* instance = nullptr;
        EXPECT_EQ(Configuration::getInstance(&instance), 0);
        return *instance;
    }
    const std::filesystem::path m_before = std::filesystem::current_path();
    TempDir m_dir;
};

TEST_F(Settings, NumbersOutOfRangeBecomeDefaults) {
    using C = Configuration;
    // Key, maximum, default, and unit of the accessor.
    const std::tuple<std::string, int64_t, int64_t, int64_t, std::function<int64_t(const C&)>>
        settings[] = {{"maxHashMemory", 1048576, 102400, 1024, &C::maxHashMemory},
                      {"memoryDiskSize", 2097152, 512000, 1024, &C::memoryDiskSize},
                      {"sleepTime", 36000, 10800, 1, &C::sleepTime},
                      {"daycrcsortInterval", 36000, 18000, 1, &C::daycrcsortInterval},
                      {"weekmoncrcsortInterval", 172800, 86400, 1, &C::weekmoncrcsortInterval},
                      {"exportPersent", 100, 60, 1, &C::exportPersent}};
    for (const auto& [key, maximum, byDefault, unit, get] : settings) {
        const std::string highest = std::to_string(maximum);
        for (const std::string& text : {std::to_string(maximum + 1), highest + "00000000",
                                        std::string("0"), std::string("-5"), std::string()}) {
            EXPECT_EQ(get(load(key + "=" + text)), byDefault * unit) << key << text;
        }
        EXPECT_EQ(get(load(key + "=" + highest)), maximum * unit) << key;
        EXPECT_EQ(get(load(key + "=1K")), unit) << key;
        std::filesystem::remove(m_dir / "config/urlstat.ini");
        EXPECT_EQ(get(this->get()), unit) << "read once";
        Configuration::resetInstance();
        EXPECT_EQ(get(this->get()), byDefault * unit) << "no file";
    }
}

TEST_F(Settings, PathsAreCleanedUp) {
    const std::pair<const char*, const char*> cases[] = {
        {"D:\\stat\\", "D:/stat"}, {"/a/b", "/a/b"}, {"D:/x//", "D:/x/"}, {"/", ""}, {"", ""}};
    for (const auto& [given, taken] : cases) {
        EXPECT_EQ(load(std::string("urlStatRoot=") + given).urlStatRoot(), taken);
        EXPECT_EQ(load(std::string("memoryDiskPath=") + given).memoryDiskPath(), taken);
    }
}

TEST_F(Settings, DataPath) {
    test::FakeClockPlatform machine;
    const test::ScopedPlatform scope(machine);
    // Executable and "logdatapath", and the path that follows.
    const std::string cases[][3] = {{"/inst/ml/x", "=D:\\logs", "D:/logs/log_data"},
                                    {"\\inst\\ml\\bin\\x.exe", "=/srv/", "/srv/log_data"},
                                    {"/inst/mlother/x", "=x", "x/log_data"},
                                    {"/inst/bin/x", "=x", ""},
                                    {"/inst/ml/ml/x", "=x", ""}, // the last "/ml" counts
                                    {"/inst/ml/x", "=", ""},
                                    {"/" + std::string(250, 'd') + "/ml/x", "=x", ""}};
    for (const auto& [program, value, expected] : cases) {
        m_dir.write("inst/mysql_path.ini", "[mysql]\nlogdatapath" + value + "\n");
        machine.executable = m_dir.path() + program;
        std::string path;
        EXPECT_EQ(getDataPath(path), expected.empty() ? -1 : 0) << program;
        EXPECT_EQ(path, expected);
    }
}

} // namespace
} // namespace kestrine
