#include "frame/configuration.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

// The fixed paths of the settings files, found in a test's directory.
class SettingsPlatform : public test::FakeClockPlatform {
public:
    explicit SettingsPlatform(const test::TempDir& dir) : m_dir(dir) {}

    bool exists(const std::string& path) override { return FakeClockPlatform::exists(moved(path)); }
    int info(const std::string& path, FileInfo& info) override {
        return FakeClockPlatform::info(moved(path), info);
    }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        return FakeClockPlatform::open(moved(path), mode);
    }

private:
    [[nodiscard]] std::string moved(const std::string& path) const {
        return path == "config/urlstat.ini" || path == "/etc/veltan/logconfig.ini" ? m_dir / path
                                                                                   : path;
    }
    const test::TempDir& m_dir;
};

class Settings : public testing::Test {
protected:
    ~Settings() override { Configuration::resetInstance(); }

    // The instance made of a settings file with this content; what was logged.
    Configuration& load(const std::string& keys) {
        m_dir.write("config/urlstat.ini", "[urlstat]\n" + keys);
        return get();
    }
    Configuration& get() {
        Configuration::resetInstance();
        Configuration* instance = nullptr;
        testing::internal::CaptureStdout();
        EXPECT_EQ(Configuration::getInstance(&instance), 0);
        m_console = testing::internal::GetCapturedStdout();
        return *instance;
    }
    [[nodiscard]] bool logged(const std::string& text) const {
        return m_console.find(text) != std::string::npos;
    }

    test::TempDir m_dir;
    SettingsPlatform m_platform{m_dir};
    test::ScopedPlatform m_scope{m_platform};
    std::string m_console;
};

TEST_F(Settings, NumbersOutOfRangeBecomeDefaults) {
    struct Case {
        const char* line;
        int64_t value; // of that key, in its accessor's unit
        bool replaced; // with a message
    };
    const Case cases[] = {
        {"maxHashMemory=1", 1024, false},
        {"maxHashMemory=0", 102400 * 1024, true},
        {"maxHashMemory=1048576", 1048576 * 1024LL, false},
        {"maxHashMemory=1048577", 102400 * 1024, true},
        {"maxHashMemory=64K", 64 * 1024, false},
        {"maxHashMemory=abc", 102400 * 1024, true},
        {"maxHashMemory=-5", 102400 * 1024, true},
        {"maxHashMemory=99999999999999", 102400 * 1024, true},
        {"sleepTime=", 10800, false},
        {"sleepTime=0", 10800, true},
        {"sleepTime=36000", 36000, false},
        {"sleepTime=36001", 10800, true},
        {"daycrcsortInterval=36000", 36000, false},
        {"daycrcsortInterval=36001", 18000, true},
        {"weekmoncrcsortInterval=172800", 172800, false},
        {"weekmoncrcsortInterval=172801", 86400, true},
        {"exportPersent=100", 100, false},
        {"exportPersent=101", 60, true},
        {"memoryDiskSize=2097152", 2097152 * 1024LL, false},
        {"memoryDiskSize=2097153", 512000 * 1024LL, true},
    };
    for (const Case& one : cases) {
        const std::string line = one.line;
        const std::string key = line.substr(0, line.find('='));
        const Configuration& c = load(line + "\n");
        const std::map<std::string, int64_t> values = {
            {"maxHashMemory", c.maxHashMemory()},
            {"sleepTime", c.sleepTime()},
            {"daycrcsortInterval", c.daycrcsortInterval()},
            {"weekmoncrcsortInterval", c.weekmoncrcsortInterval()},
            {"exportPersent", c.exportPersent()},
            {"memoryDiskSize", c.memoryDiskSize()}};
        EXPECT_EQ(values.at(key), one.value) << line;
        EXPECT_EQ(logged("m_" + key + " out of range"), one.replaced) << line;
    }
    load("sleepTime=36001\n");
    EXPECT_TRUE(logged("I:Configuration::checkRange "));
    EXPECT_TRUE(logged(" m_sleepTime out of range 36001 min 1 max 36000, set to default 10800\n"));
}

TEST_F(Settings, PathsAreCleanedUp) {
    struct Case {
        const char* given;
        const char* taken;
        bool message;
    };
    const Case cases[] = {{"D:\\stat\\", "D:/stat", true},
                          {"/a/b", "/a/b", false},
                          {"D:/x//", "D:/x/", true},
                          {"/", "", true},
                          {"", "", false}};
    for (const Case& one : cases) {
        EXPECT_EQ(load(std::string("urlStatRoot=") + one.given).urlStatRoot(), one.taken);
        EXPECT_EQ(logged("m_urlStatRoot should not ends with / or \\, delete it"), one.message);
        EXPECT_EQ(logged("urlstatroot empty!"), std::string(one.given).empty());
        EXPECT_EQ(load(std::string("memoryDiskPath=") + one.given).memoryDiskPath(), one.taken);
        EXPECT_EQ(logged("m_urlStatRoot should not ends with / or \\, delete it"), one.message);
        EXPECT_EQ(logged("m_memoryDiskPath empty!"), std::string(one.given).empty());
    }
}

TEST_F(Settings, MissingFileGivesDefaults) {
    const Configuration& settings = get();
    EXPECT_TRUE(logged("config/urlstat.ini not exist\n"));
    EXPECT_TRUE(logged("set default configuration\n"));
    EXPECT_EQ(settings.maxHashMemory(), 102400 * 1024);
    EXPECT_EQ(settings.urlBlockSize(), 2048 * 1024);
    EXPECT_EQ(settings.memoryDiskSize(), 512000 * 1024);
    EXPECT_EQ(settings.urlStatRoot(), "");
    const char* const startUp[] = {
        "m_maxHashMemory 102400K", "m_memoryDiskSize 512000K",    "m_urlBlockSize 2048K",
        "m_sleepTime 10800s",      "m_daycrcsortInterval 18000s", "m_weekmoncrcsortInterval 86400s",
        "m_exportPersent 60%",     "m_memoryDiskPath ",           "m_urlStatRoot "};
    size_t at = 0;
    for (const char* line : startUp) {
        at = m_console.find(std::string(" ") + line + "\n", at);
        ASSERT_NE(at, std::string::npos) << line;
    }
}

TEST_F(Settings, AreReadOncePerProcess) {
    load("sleepTime=5\nexportPersent=7\n").setUrlStatRoot("/kept/");
    m_dir.write("config/urlstat.ini", "[urlstat]\nsleepTime=6\n");
    Configuration* instance = nullptr;
    ASSERT_EQ(Configuration::getInstance(&instance), 0);
    EXPECT_EQ(instance->sleepTime(), 5);
    EXPECT_EQ(instance->urlStatRoot(), "/kept/");
    EXPECT_EQ(Configuration::getInstance(nullptr), -1);
}

TEST_F(Settings, UnreadableFileIsAFailure) {
    m_dir.makeDirs("config/urlstat.ini");
    Configuration* instance = nullptr;
    EXPECT_EQ(Configuration::getInstance(&instance), -1);
    EXPECT_EQ(instance, nullptr);
}

TEST_F(Settings, DataPath) {
    const std::string ini = m_dir.write("inst/mysql_path.ini");
    struct Case {
        std::string executable; // below the test's directory
        const char* content;
        const char* path; // null: failure
        const char* message;
    };
    const Case cases[] = {
        {"/inst/ml/kestrine", "[mysql]\nlogdatapath=D:\\logs\n", "D:/logs/log_data", ""},
        {"/inst/ml/kestrine", "[mysql]\nlogdatapath=/srv/\n", "/srv/log_data", ""},
        {"\\inst\\ml\\bin\\kestrine.exe", "[mysql]\nlogdatapath=x\n", "x/log_data", ""},
        {"/inst/mlother/kestrine", "[mysql]\nlogdatapath=x\n", "x/log_data", ""},
        {"/inst/bin/kestrine", "", nullptr, " invalid\n"},
        {"/inst/ml/ml/kestrine", "", nullptr, "load "}, // the last "/ml" counts
        {"/inst/ml/kestrine", "[mysql]\nlogdatapath=\n", nullptr, "empty config in "},
        {"/inst/ml/kestrine", "[MYSQL]\nlogdatapath=x\n", nullptr, "empty config in "},
        {"/" + std::string(250, 'd') + "/ml/kestrine", "", nullptr, "sprintf_n fail errno "},
    };
    for (const Case& one : cases) {
        m_dir.write("inst/mysql_path.ini", one.content);
        m_platform.executable = m_dir.path() + one.executable;
        std::string path = "untouched";
        testing::internal::CaptureStdout();
        EXPECT_EQ(getDataPath(path), one.path ? 0 : -1) << one.executable;
        const std::string console = testing::internal::GetCapturedStdout();
        EXPECT_EQ(path, one.path ? one.path : "untouched");
        EXPECT_NE(console.find(one.message), std::string::npos) << console;
    }
    m_platform.executable = "";
    std::string path;
    EXPECT_EQ(getDataPath(path), -1);
}

TEST_F(Settings, LoggersOwn) {
    EXPECT_EQ(LoggerSettings().maxFileLife, 300); // no file
    struct Case {
        const char* block;
        const char* file;
        int32_t blockLife;
        int32_t fileLife;
    };
    const Case cases[] = {
        {"20", "60", 20, 60},     {"19", "61", 60, 61},     {"180", "181", 180, 181},
        {"181", "300", 60, 300},  {"120", "100", 120, 300}, {"120", "120", 120, 300},
        {"120", "121", 120, 121}, {"30", "59", 30, 300},    {"30", "301", 30, 300},
        {"", "", 60, 300},        {"19", "60", 60, 300},
    };
    for (const Case& one : cases) {
        m_dir.write("etc/veltan/logconfig.ini", std::string("[loger]\nmaxBlockLife=") + one.block +
                                                    "\nmaxFileLife=" + one.file + "\n");
        const LoggerSettings settings;
        EXPECT_EQ(settings.maxBlockLife, one.blockLife) << one.block << " " << one.file;
        EXPECT_EQ(settings.maxFileLife, one.fileLife) << one.block << " " << one.file;
    }
}

} // namespace
} // namespace kestrine
