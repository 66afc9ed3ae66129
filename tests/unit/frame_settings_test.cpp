#include "frame/configuration.h"
#include "frame/data_path.h"
#include "frame/ini_file.h"
#include "frame/install_root.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using test::TempDir;

TEST(IniFile, FindsValues) {
    // Text of the file, and the value of section "s", key "k".
    const std::pair<const char*, const char*> cases[] = {
        {"[s]\r\nk=v\r\n", "v"},
        {"[s]\nk=v", "v"},
        {"\xEF\xBB\xBF[s]\nk=v", "v"},   // a byte-order mark
        {"[s]\nk = v \n", "v "},         // one blank on each side of '='
        {"[s]\n\t  k=  v\n", " v"},      // the second stays
        {"[s]\nk=a=b;c#d\n", "a=b;c#d"}, // first '=' only, no comments behind values
        {"[s]\nk= \r\n", ""},
        {"[a]s]\nk=1\n[]\nk=2\n[s]\nk=3\nk=4", "3"}, // the first of two
        {"k=1\n=2\nno equals\n [s]\n=3\nk\n;k=4\n#k=5\n\n \r\nk=6\n", "6"},
        // A second blank or a tab belongs to the key, a blank behind the bracket or a missing line
        // end to the section's name; only the first place of a section counts.
        {"[s]\nk  =v\n[s]\nk=2\n", "none"},
        {"[s]\nk\t=v\n", "none"},
        {"[s] \nk=v\n", "none"},
        {"[s\nk=v\n", "none"},
        {"[s]\nK=v\n[S]\nk=v\n", "none"}};
    const TempDir dir;
    for (const auto& [text, value] : cases) {
        IniFile ini;
        EXPECT_EQ(ini.load(dir.write(std::to_string(&value - &cases[0].second), text)), 0);
        EXPECT_EQ(ini.find("s", "k").value_or("none"), value) << text;
    }
}

// What is left over of a line that is too long is one of its own; the last value lies many chunks
// on.
TEST(IniFile, LongLinesAndLongFiles) {
    const std::string longest(65535 - 2, 'v');
    std::string text = "[s]\nk=" + longest + "z=1\n";
    for (int i = 0; i < 300; ++i) {
        text +=
            "key" + std::to_string(i) + "=" + std::string(10000, 'x') + std::to_string(i) + "\n";
    }
    const TempDir dir;
    IniFile ini;
    ASSERT_EQ(ini.load(dir.write("x", text)), 0);
    EXPECT_TRUE(ini.find("s", "k") == longest && ini.find("s", "z") == "1");
    EXPECT_EQ(ini.find("s", "key299"), std::string(10000, 'x') + "299");
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
    for (const Configuration::NumericSetting& setting : Configuration::numericSettings()) {
        const std::string key = setting.key;
        const std::string highest = std::to_string(setting.maximum);
        for (const std::string& text :
             {highest + "0", highest + "00000000", std::string("-5"), std::string("K")}) {
            const bool zero = text == "K" && setting.minimum == 0;
            EXPECT_EQ(load(key + "=" + text).valueOf(setting), zero ? 0 : setting.defaultValue);
        }
        EXPECT_EQ(load(key + "= +" + highest).valueOf(setting), setting.maximum) << key;
        EXPECT_EQ(load(key + "=1K").valueOf(setting), 1) << key;
        std::filesystem::remove(m_dir / "config/urlstat.ini");
        EXPECT_EQ(get().valueOf(setting), 1) << "read once";
        Configuration::resetInstance();
        EXPECT_EQ(get().valueOf(setting), setting.defaultValue) << "no file";
    }
    EXPECT_EQ(load("maxHashMemory=3").maxHashMemory(), 3 * 1024);
}

TEST_F(Settings, Paths) {
    test::FakeClockPlatform machine;
    const test::ScopedPlatform scope(machine);
    EXPECT_EQ(load("urlStatRoot=D:\\stat\\").urlStatRoot(), "D:/stat");
    EXPECT_EQ(load("memoryDiskPath=/x//").memoryDiskPath(), "/x/");
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

// With a named root nothing is of the working directory or beside the program.
TEST_F(Settings, NamedRoot) {
    test::FakeClockPlatform machine;
    machine.executable = "/usr/bin/x";
    const test::ScopedPlatform scope(machine);
    load("urlStatRoot=here");
    const std::string root = m_dir.makeDirs("root");
    install::nameRoot(root);
    for (const auto& [path, name] :
         {std::pair(install::settingsFile(), "/config/urlstat.ini"),
          std::pair(install::accountFile(), "/config/syncaccount.dat"),
          std::pair(install::logDirectory(), "/log/kestrine"),
          std::pair(install::dataPathFile(), "/mysql_path.ini"),
          std::pair(install::keepMarker(), "/do_not_delete_daycrcsortnew")}) {
        EXPECT_EQ(path, root + name);
    }
    // A path of the settings, and what it means below the roots "/r" and "D:/r".
    const std::string cases[][3] = {{"", "", ""},
                                    {"x/y", "/r/x/y", "D:/r/x/y"},
                                    {"/x", "/x", "D:/x"},
                                    {"E:/x", "E:/x", "E:/x"},
                                    {"//server/x", "//server/x", "//server/x"}};
    for (const auto& [path, below, belowDrive] : cases) {
        install::nameRoot("/r");
        EXPECT_EQ(install::settingsPath(path), below);
        install::nameRoot("D:/r");
        EXPECT_EQ(install::settingsPath(path), belowDrive);
    }
    install::nameRoot(root);
    m_dir.write("root/config/urlstat.ini", "[urlstat]\nurlStatRoot=x\\y\\\n");
    m_dir.write("root/mysql_path.ini", "[mysql]\nlogdatapath=logs\n");
    Configuration::resetInstance();
    EXPECT_EQ(get().urlStatRoot(), root + "/x/y");
    std::string path;
    EXPECT_EQ(getDataPath(path), 0);
    EXPECT_EQ(path, root + "/logs/log_data");
    install::nameRoot("");
    Configuration::resetInstance();
    EXPECT_EQ(get().urlStatRoot(), "here");
}

} // namespace
} // namespace kestrine
