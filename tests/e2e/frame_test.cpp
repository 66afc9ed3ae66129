// The frame of the service: refusals, settings, arguments, log file and console.
#include "service_world.h"

#include "platform/platform.h"
#include "version.h"
#include "worldgen/install.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

namespace kestrine::test {
namespace {

namespace fs = std::filesystem;

// What the programs answer to their command lines; none of it touches a file.
TEST(Frame, ProgramsAnswerWithoutAStart) {
    ServiceWorld world;
    worldgen::WorldSettings settings = tinyWorld(300);
    settings.install.olderAccountLayout = true; // which a start would rewrite
    world.generate(settings);
    world.configure({{"maxHashMemory", "0"}, {"exportPersent", "70x"}});
    const auto before = world.dir().tree();
    const std::string service = world.program();
    const std::string version = std::string(" ") + g_version;
    const std::string account = world.logData() + "/alice: devices 1, dates 2, ";
    const struct {
        std::string program;
        Lines arguments;
        int code;
        Lines parts; // of lines
    } rows[] = {
        {service, {"debug=1", "--version", "--help"}, 0, {"kestrine" + version}},
        {URLSTAT_PROGRAM, {"--version"}, 0, {"urlstat" + version}},
        {MKLOGDATA_PROGRAM, {"--version"}, 0, {"mklogdata" + version}},
        {service, {"--help"}, 0, {"  --check ", "  config/urlstat.ini ", "Exit codes:"}},
        {service,
         {"--unknown", "--check"},
         0,
         {"maxHashMemory = 102400 KiB (default, since \"0\" is out of range)",
          "sleepTime = 1 s (set)", "exportPersent = 70 % (set by \"70x\")",
          "settleTime = 0 s (default)", "statistics root: " + world.statRoot() + " (not there)",
          account + "20121229 to 20121230", "nothing is wrong"}},
        {URLSTAT_PROGRAM, {"--help"}, 0, {"status"}},
        {URLSTAT_PROGRAM, {"status", "missing"}, 1, {"missing cannot be opened"}},
        {URLSTAT_PROGRAM, {}, 106, {"subcommand is required"}},
        {URLSTAT_PROGRAM, {"dump", service, "--unknown"}, 109, {"--unknown"}},
        {MKLOGDATA_PROGRAM, {world.dir() / "new", "--unknown"}, 109, {"--unknown"}},
    };
    for (const auto& [program, arguments, code, parts] : rows) {
        const auto [given, lines] = run(program, arguments, world.programDir());
        EXPECT_EQ(given, code) << testing::PrintToString(arguments);
        for (const std::string& part : parts) {
            EXPECT_EQ(countLines(lines, part), 1) << part << testing::PrintToString(lines);
        }
    }
    EXPECT_TRUE(world.dir().tree() == before);
}

bool hasLineEndingIn(const Lines& lines, const std::string& end) {
    return std::ranges::any_of(lines, [&](const std::string& line) { return line.ends_with(end); });
}

// The service says why it does not start, so does its check, and both touch nothing.
TEST(Frame, RefusesToStart) {
    ServiceWorld world;
    world.generate(tinyWorld(300));
    const std::string dataPathFile = world.dir() / "install/mysql_path.ini";
    const auto refuses = [&](const std::string& line) {
        const auto [code, lines] = run(world.program(), {"--check"}, world.programDir());
        EXPECT_EQ(code, 1);
        EXPECT_GE(countLines(lines, line), 1) << line << testing::PrintToString(lines);
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
    std::unique_ptr<NamedEvent> lock; // as an instance of another container holds it
    fs::create_directory(world.statRoot());
    ASSERT_EQ(platform().lockFile(world.statRoot() + "/.kestrine.lock", lock), LockResult::Locked);
    refuses(" is running on " + world.statRoot());
    lock.reset();
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
    static const std::regex shape(" [ied] [ \\d]\\d:[ \\d]\\d:[ \\d]\\d .+");
    if (!std::regex_match(logLine.substr(0, 100), shape)) {
        ADD_FAILURE() << "no log line: " << logLine;
        return logLine;
    }
    return std::string(1, static_cast<char>(logLine[1] - 'a' + 'A')) + ":" + logLine.substr(12);
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
    EXPECT_TRUE(hasLineEndingIn({service->lines().front()}, std::string(" kestrine ") + g_version));
    const auto [code, lines] = run(world.program(), {"--check"}, world.programDir());
    EXPECT_EQ(code, 1);
    EXPECT_EQ(countLines(lines, "memory disk: " + (world.dir() / "fast/memory")), 1);
    EXPECT_EQ(Lines(lines.end() - 2, lines.end()), Lines({"wrong: 1", "  the service is running"}));
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
        static const std::regex shape("install/ml/log/kestrine/kestrine\\d{8}\\.txt");
        if (!name.starts_with("install/ml/log/") || name.ends_with('/')) {
            continue;
        }
        EXPECT_TRUE(std::regex_match(name, shape)) << name;
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
