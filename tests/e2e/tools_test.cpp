// The programs beside the service, as their users call them.
#include "service_world.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>

namespace kestrine::test {
namespace {

namespace fs = std::filesystem;

Answer run(const std::string& program, const Lines& arguments) {
    return test::run(program, arguments, fs::temp_directory_path().string());
}

// Takes in the file of totals, "account date type visits host" lines, and returns the visits.
uint64_t addTotals(ExpectedWorld& expected, const std::string& totals) {
    std::istringstream stream(totals);
    std::string account;
    std::string host;
    int date = 0;
    uint32_t type = 0;
    uint64_t visits = 0;
    uint64_t sum = 0;
    while (stream >> account >> date >> type >> visits >> host) {
        expected.visit(account, date, host, type, visits);
        sum += visits;
    }
    return sum;
}

TEST(Tools, TotalsOfMklogdataAreWhatTheServiceCounts) {
    ServiceWorld world;
    const std::string root = world.dir().path();
    const std::pair<const char*, uint64_t> calls[] = {
        {"--visits 3000 --days 2 --first-date 20131231 --files-per-node 2 --long-node-files 0 "
         "--seed 7",
         3000},
        {"--visits 1000 --append --files-per-node 1", 1000}};
    Lines arguments;
    for (const auto& [words, visits] : calls) {
        std::istringstream stream(words);
        arguments = {root, "--hosts", "900", "--totals", root + "/totals"};
        std::copy(std::istream_iterator<std::string>(stream), {}, std::back_inserter(arguments));
        const Answer made = run(MKLOGDATA_PROGRAM, arguments);
        ASSERT_EQ(made.code, 0) << testing::PrintToString(made.lines);
        EXPECT_EQ(countLines(made.lines, "total visits " + std::to_string(visits)), 1)
            << testing::PrintToString(made.lines);
        EXPECT_EQ(countLines(made.lines, "account "), 4);
        EXPECT_EQ(addTotals(world.expected(), world.dir().read("totals")), visits);
    }
    for (const int date : {20131231, 20140101}) {
        for (const auto& [account, device] :
             {std::pair("alice", 8), {"alice", 9}, {"bob", 10}, {"bob", 11}}) {
            world.expected().node(account, device, date, 2);
        }
    }
    arguments.erase(std::ranges::find(arguments, "--append"));
    EXPECT_NE(run(MKLOGDATA_PROGRAM, arguments).code, 0) << "a world was overwritten";
    world.installProgram();
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
}

TEST(Tools, UrlstatShowsFilesAndTellsGoodFromDamaged) {
    ServiceWorld world;
    worldgen::WorldSettings settings = tinyWorld(2000, 20121230, 1);
    settings.longHosts = 0;
    world.generate(settings);
    ASSERT_TRUE(world.onePass());
    for (const auto& [name, expected] : world.expected().tree()) {
        const std::string path = world.statRoot() + "/" + name;
        const auto total = std::ranges::find_if(
            expected, [](const std::string& line) { return line.starts_with("total "); });
        const auto [code, lines] = run(URLSTAT_PROGRAM, {"dump", path});
        EXPECT_EQ(code, 0);
        EXPECT_EQ(lines, Lines(expected.begin(), total)) << name;
        const Answer top = run(URLSTAT_PROGRAM, {"top", path, "-n", "7"});
        EXPECT_EQ(std::pair(top.code, top.lines.size()), std::pair(0, size_t{8})) << name;
        const Answer status = run(URLSTAT_PROGRAM, {"status", path});
        EXPECT_EQ(status.code, 0);
        EXPECT_EQ(countLines(status.lines, "visits       " + total->substr(6)), 1) << name;

        const std::vector<uint8_t> good = readBytes(path);
        // First block, status, end position.
        for (const size_t at : {size_t{60}, good.size() - 12, good.size() - 3}) {
            std::vector<uint8_t> damaged = good;
            damaged[at] ^= 0x20;
            writeBytes(path, damaged);
            for (const char* command : {"top", "status", "dump"}) {
                EXPECT_EQ(run(URLSTAT_PROGRAM, {command, path}).code, 1) << command << " " << path;
            }
        }
    }
}

} // namespace
} // namespace kestrine::test
