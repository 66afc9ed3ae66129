// Makes a sample world for the service, or appends log files to one, and prints what it wrote.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "version.h"
#include "worldgen/world.h"

namespace {

struct Arguments {
    std::string root;
    std::string totalsFile;
    std::string dataPath;
    std::vector<std::string> set;
    bool append = false;
    worldgen::WorldSettings world;
};

void defineContents(CLI::App& app, Arguments& arguments) {
    worldgen::WorldSettings& world = arguments.world;
    app.add_option("--seed", world.seed, "Seed of all random choices")->capture_default_str();
    app.add_option("--visits", world.visits, "Visits to write")->capture_default_str();
    app.add_option("--hosts", world.hosts, "Hosts to choose from, up to 16777216")
        ->capture_default_str();
    app.add_option("--types", world.types, "Record types; keep it when appending")
        ->capture_default_str();
    app.add_option("--long-hosts", world.longHosts,
                   "Hosts of about 260 bytes and more; keep it when appending")
        ->capture_default_str();
    app.add_option("--zipf", world.zipfExponent, "Skew of the hosts' popularity, 0 to 4")
        ->capture_default_str();
    app.add_option("--files-per-node", world.filesPerNode, "Files of each device and date")
        ->capture_default_str();
    app.add_option("--blocks-per-file", world.blocksPerFile, "Least number of blocks of a file")
        ->capture_default_str();
    app.add_option("--block-bytes", world.blockBytes, "Largest block before compression")
        ->capture_default_str();
    app.add_option("--raw-percent", world.rawPercent, "Share of uncompressed blocks")
        ->capture_default_str();
    app.add_option("--skip-per-mille", world.skipPerMille,
                   "Records that are no visit, for 1000 visits")
        ->capture_default_str();
    app.add_option("--threads", world.threads, "Threads, 0: as many as processors")
        ->capture_default_str();
    app.add_option("--totals", arguments.totalsFile,
                   "File for \"account date type visits host\" lines");
}

void defineLayout(CLI::App& app, Arguments& arguments) {
    worldgen::WorldSettings& world = arguments.world;
    CLI::Option* append = app.add_flag("--append", arguments.append,
                                       "Add files to each device and date of an existing world");
    std::vector<CLI::Option*> first = {
        app.add_option("--accounts", world.accounts, "Accounts")->capture_default_str(),
        app.add_option("--account", world.accountNames, "Name of an account, repeatable")
            ->allow_extra_args(false),
        app.add_option("--devices", world.devices, "Devices of each account")
            ->capture_default_str(),
        app.add_option("--first-date", world.firstDate, "First date, YYYYMMDD")
            ->capture_default_str(),
        app.add_option("--days", world.days, "Days from the first date on")->capture_default_str(),
        app.add_option("--long-node-files", world.longNodeFiles,
                       "Files of the first device on the first date")
            ->capture_default_str(),
        app.add_flag("--older-accounts", world.install.olderAccountLayout,
                     "Write the account file in its older layout"),
        app.add_option("--data-path", arguments.dataPath,
                       "Log data path as the service is to see it"),
        app.add_option("--set", arguments.set, "key=value for urlstat.ini, repeatable")
            ->allow_extra_args(false)};
    for (CLI::Option* option : first) {
        option->excludes(append);
    }
    app.add_option("--new-days", world.newDays, "Days to add after the last one")->needs(append);
    app.add_option("--new-devices", world.newDevices, "Devices to add to each account")
        ->needs(append);
}

// The lines of urlstat.ini: short pauses between passes unless something else is asked for.
std::vector<std::pair<std::string, std::string>> iniLines(const std::vector<std::string>& set) {
    std::vector<std::pair<std::string, std::string>> lines = {{"sleepTime", "1"}};
    for (const std::string& assignment : set) {
        std::size_t equals = assignment.find('=');
        if (equals == 0 || equals == std::string::npos) {
            throw std::invalid_argument("--set wants key=value: " + assignment);
        }
        std::string key = assignment.substr(0, equals);
        std::erase_if(lines, [&key](const auto& line) { return line.first == key; });
        lines.emplace_back(key, assignment.substr(equals + 1));
    }
    return lines;
}

void printTotals(const worldgen::Totals& totals) {
    for (const auto& [account, days] : totals.accounts) {
        for (const auto& [date, day] : days) {
            std::printf("account %s date %d visits %" PRIu64, account.c_str(), date,
                        day.sums.visits);
            if (day.distinctHosts) {
                std::printf(" hosts %" PRIu64, *day.distinctHosts);
            }
            std::printf("\n");
        }
    }
    worldgen::Sums sum = totals.sum();
    std::printf("skipped records %" PRIu64 "\nraw bytes %" PRIu64 "\nstored bytes %" PRIu64
                "\nfiles %" PRIu64 "\ntotal visits %" PRIu64 "\n",
                sum.skipped, sum.rawBytes, sum.storedBytes, sum.files, sum.visits);
}

void writeTotals(const worldgen::Totals& totals, const std::string& path) {
    std::ofstream stream(path, std::ios::binary);
    for (const auto& [account, days] : totals.accounts) {
        for (const auto& [date, day] : days) {
            for (const auto& [name, host] : day.hosts) {
                stream << account << ' ' << date << ' ' << host.type << ' ' << host.visits << ' '
                       << name << '\n';
            }
        }
    }
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + path);
    }
}

void run(Arguments& arguments) {
    auto begin = std::chrono::steady_clock::now();
    worldgen::WorldSettings& settings = arguments.world;
    settings.hostMaps = !arguments.totalsFile.empty();
    settings.install.urlstat = iniLines(arguments.set);
    if (!arguments.dataPath.empty()) {
        settings.install.dataPath = arguments.dataPath;
    }
    worldgen::World world(arguments.root);
    worldgen::Totals totals = arguments.append ? world.append(settings) : world.generate(settings);
    std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    if (!arguments.totalsFile.empty()) {
        writeTotals(totals, arguments.totalsFile);
    }
    std::fprintf(stderr, "%.1f s, %.0f MB of raw records a second\n", seconds.count(),
                 static_cast<double>(totals.sum().rawBytes) / 1e6 / seconds.count());
    printTotals(totals);
}

} // namespace

int main(int argc, char** argv) try {
    CLI::App app("Makes sample log data: an install tree and a log-data tree in one directory.");
    app.set_version_flag("--version", std::string("mklogdata ") + kestrine::g_version);
    Arguments arguments;
    app.add_option("ROOT", arguments.root, "Directory of the world")->required();
    defineContents(app, arguments);
    defineLayout(app, arguments);
    CLI11_PARSE(app, argc, argv);
    run(arguments);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "mklogdata: %s\n", error.what());
    return 1;
}
