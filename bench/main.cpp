// Measures what needs no service, each against its own codec; bench/run.py puts it into the table.
#include "codecs.h"
#include "frame/install_root.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "measure.h"
#include "rows.h"
#include "tree/free_space.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <CLI/CLI.hpp>

using namespace kestrine;

namespace {

// Settings of a run alone, whose files lie in its directory.
const Configuration& loadSettings(const std::string& directory) {
    std::filesystem::current_path(directory);
    std::filesystem::create_directories("config");
    std::ofstream(install::settingsFile())
        << "[" << Configuration::g_section << "]\nurlStatRoot=" << directory
        << "/root\nmemoryDiskPath=" << directory << "/memdisk\n";
    Configuration* settings = nullptr;
    bench::require(Configuration::getInstance(&settings) == 0, "load the settings");
    return *settings;
}

void printRows(const std::string& directory, int rounds, uint32_t hosts) {
    const bench::Run run{directory, rounds, hosts, loadSettings(directory)};
    uint32_t free = 0;
    bench::require(Util::getAvailableSpace(directory, free) == 0 && free > g_minFreeSpaceMiB,
                   "run: merges wait until more than 5 GiB are free");
    bench::mergeRows(run);
    bench::spillRows(run);
    bench::topRows(run);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Measures parts of Kestrine against the codec that they use.");
    app.require_subcommand(1);
    std::string directory;
    int rounds = 5;
    uint32_t hosts = 1000000;
    CLI::App* rows = app.add_subcommand("rows", "Merge, spill and top lists: lines of ratios");
    rows->add_option("DIRECTORY", directory, "For files that it makes")->required();
    rows->add_option("--rounds", rounds, "Measurements of each")->capture_default_str();
    rows->add_option("--hosts", hosts, "Hosts of the largest file")->capture_default_str();
    CLI::App* decode =
        app.add_subcommand("decode", "CPU seconds to decode the log files of a directory");
    decode->add_option("DIRECTORY", directory, "Log data")->required();
    CLI::App* makeMonth = app.add_subcommand("make-month", "Makes a month of day files");
    makeMonth->add_option("DIRECTORY", directory, "Statistics root")->required();
    makeMonth->add_option("--hosts", hosts, "Hosts of each")->capture_default_str();
    CLI::App* month = app.add_subcommand("month", "CPU seconds to merge and to decode them");
    month->add_option("DIRECTORY", directory, "Statistics root")->required();
    CLI11_PARSE(app, argc, argv);

    reportErrorsToStderr();
    g_isRunning = 1;
    if (decode->parsed()) {
        bench::printDecoding(directory);
    } else if (makeMonth->parsed()) {
        bench::makeMonth(directory, hosts);
    } else if (month->parsed()) {
        loadSettings(directory);
        bench::printMonth(directory);
    } else {
        printRows(std::filesystem::absolute(directory).generic_string(), rounds, hosts);
    }
    return 0;
}
