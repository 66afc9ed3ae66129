// The frame of the service: refusals, settings, arguments, log file and console.
#include "service_world.h"

#include "worldgen/install.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace kestrine::test {
namespace {

namespace fs = std::filesystem;

bool hasLineEndingIn(const Lines& lines, const std::string& end) {
    return std::ranges::any_of(lines, [&](const std::string& line) { return line.ends_with(end); });
}

// The service says why it does not start, and touches nothing.
TEST(Frame, RefusesToStartWithBrokenSettings) {
    ServiceWorld world;
    world.generate(tinyWorld(300));
    const std::string dataPathFile = world.dir() / "install/mysql_path.ini";
    const std::string accountFile = worldgen::accountFilePath(world.dir().path()).string();
    const auto refuses = [&](const std::string& line) {
        const auto service = world.start();
        EXPECT_EQ(service->wait(), -1) << service->tail();
        const Lines errors = errorLines(*service);
        EXPECT_GE(countLines(errors, line), 1) << line << "; " << service->tail();
        EXPECT_TRUE(hasLineEndingIn(errors, " init work thread fail")) << service->tail();
    };
    const auto before = world.dir().tree();
    // One separator at the end of the setting is taken off.
    const std::string volume = fs::path(world.logData()).root_path().generic_string() + "/";
    for (const std::string& memoryDisk :
         {world.logData(), world.dir() / "data", world.statRoot() + "/", volume}) {
        world.configure({{"memoryDiskPath", memoryDisk}});
        refuses(" refused");
    }
    world.configure({});
    worldgen::writeFile(dataPathFile, "[mysql]\n");
    refuses(" empty config in " + dataPathFile);
    fs::remove(dataPathFile);
    refuses(" load " + dataPathFile + " fail");
    for (const auto& [name, content] : before) {
        if (name.starts_with("data/") && !name.ends_with('/')) {
            EXPECT_TRUE(world.dir().read(name) == content) << name;
        }
    }
}

// " e 14: 5: 3 UrlFile::open 81 open x fail" for "E:UrlFile::open 81 open x fail".
std::string consoleLineOf(const std::string& logLine) {
    constexpr std::string_view shape = " L 00:00:00 "; // a digit may be a blank
    bool good = logLine.size() > shape.size();
    for (size_t i = 0; good && i < shape.size(); ++i) {
        const std::string_view allowed = shape[i] == 'L'   ? "ied"
                                         : shape[i] == '0' ? " 0123456789"
                                                           : shape.substr(i, 1);
        good = allowed.find(logLine[i]) != std::string_view::npos;
    }
    EXPECT_TRUE(good) << "no log line: " << logLine;
    const char level = static_cast<char>(logLine[1] - 'a' + 'A');
    return good ? std::string(1, level) + ":" + logLine.substr(shape.size()) : logLine;
}

// Directories elsewhere than below the log data, and everything said in the log file too.
TEST(Frame, SettingsAndArgumentsAreTakenAndEveryLineIsLogged) {
    ServiceWorld world;
    world.generate(tinyWorld(300));
    world.configure({{"memoryDiskPath", world.dir() / "fast/memory\\"},
                     {"urlStatRoot", world.dir() / "results\\"},
                     {"maxHashMemory", "0"}});
    const auto service = world.start({"xdebug=3", "debug=7", "--unknown"});
    ASSERT_TRUE(service->waitForPause()) << service->tail();
    EXPECT_TRUE(world.dir().has("fast/memory"));
    ASSERT_TRUE(world.stop(*service));
    EXPECT_FALSE(world.dir().has("fast/memory")) << "temporary files are left";
    EXPECT_FALSE(fs::exists(world.statRoot()));
    EXPECT_EQ(differences(world.expected().tree(),
                          readTree(world.dir() / "results", namesBelow(world.dir() / "results"),
                                   world.logData())),
              "");
    Lines console = service->lines();
    EXPECT_TRUE(hasLineEndingIn(
        console, " m_maxHashMemory out of range 0 min 1 max 1048576, set to default 102400"));

    Lines logged;
    for (const auto& [name, content] : world.dir().tree()) {
        const size_t at = name.find("/log/kestrine/kestrine");
        if (at == std::string::npos) {
            continue;
        }
        const std::string date = name.substr(at + 22);
        EXPECT_TRUE(date.size() == 12 && date.find_first_not_of("0123456789") == 8 &&
                    date.ends_with(".txt"))
            << name;
        std::istringstream stream(content);
        for (std::string line; std::getline(stream, line);) {
            logged.push_back(consoleLineOf(line));
        }
    }
    for (std::string& line : console) {
        line.resize(std::min<size_t>(line.size(), 1024)); // the file's lines are cut
    }
    std::ranges::sort(console); // the signal's line may stand between the two of another report
    std::ranges::sort(logged);
    EXPECT_EQ(logged, console);
}

} // namespace
} // namespace kestrine::test
