// A world of log data with an installation of the service in it, and what its statistics must be.
#pragma once

#include "service_process.h"
#include "support/expected_world.h"
#include "support/temp_dir.h"
#include "worldgen/dat_file.h"
#include "worldgen/world.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kestrine::test {

using Settings = std::vector<std::pair<std::string, std::string>>; // lines of urlstat.ini

// Two accounts of one device, three dates from a Saturday to a last day of the year, small files.
[[nodiscard]] worldgen::WorldSettings smallWorld(uint64_t visits = 6000);
// The same with one account and these dates, so that a pass is short.
[[nodiscard]] worldgen::WorldSettings tinyWorld(uint64_t visits, int firstDate = 20121229,
                                                int days = 2);

class ServiceWorld {
public:
    // With the shortest intervals, unless told otherwise.
    explicit ServiceWorld(Settings settings = {});

    [[nodiscard]] std::string logData() const { return m_dir / "data/log_data"; }
    [[nodiscard]] std::string statRoot() const { return logData() + "/_urlstat"; }
    [[nodiscard]] std::string programDir() const { return m_dir / "install/ml"; }
    [[nodiscard]] std::string program() const;
    [[nodiscard]] const TempDir& dir() const { return m_dir; }
    ExpectedWorld& expected() { return m_expected; }

    // Write log data and take it into what is expected.
    void generate(worldgen::WorldSettings settings = smallWorld());
    void append(worldgen::WorldSettings settings = smallWorld(2000));
    // For log data written otherwise: the accounts alone, the program alone, the place of a node.
    void makeAccounts(const std::vector<std::string>& names);
    void installProgram();
    [[nodiscard]] std::filesystem::path node(std::string_view account, int device, int date) const;

    // The log data, the statistics and what is expected, as they are and as they were.
    void save();
    void restore();

    // Replaces urlstat.ini for the next start: the settings of the constructor and these.
    void configure(const Settings& settings);

    // Starts the service. While an instance of somebody else runs on the machine, waits.
    [[nodiscard]] std::unique_ptr<ServiceProcess>
    start(const std::vector<std::string>& arguments = {});
    // Sends the request and waits for an orderly end: exit code 0, one line for the signal, "exit
    // normally" as the last line, nothing temporary left.
    [[nodiscard]] testing::AssertionResult stop(ServiceProcess& service,
                                                StopRequest request = StopRequest::Interrupt);
    // Starts it, lets it come to its first pause without an error line, and stops it.
    [[nodiscard]] testing::AssertionResult onePass();
    // Compares every file of the statistics tree, record by record, with what is expected. New-day
    // files are gone after a pass, unless they are kept.
    [[nodiscard]] testing::AssertionResult matches(bool newDayFilesKept = false) const;
    // Damaged files that were set aside, "DIRECTORY/NAME" without the time in front of the name.
    [[nodiscard]] std::vector<std::string> setAside() const;

private:
    TempDir m_dir;
    Settings m_settings;
    worldgen::World m_world;
    ExpectedWorld m_expected;
    ExpectedWorld m_saved;
    uint64_t m_seed = 1; // of the next log data
};

// Names of all files below a directory.
[[nodiscard]] std::set<std::string> namesBelow(const std::string& directory);

// Lines of errors, but those for hosts without an end, which every generated world has.
[[nodiscard]] Lines errorLines(const ServiceProcess& service);

} // namespace kestrine::test
