// What the benchmarks work on: made up once, in a temporary directory that goes at the end.
//
// TMPDIR chooses the volume. Rates are bytes of records before compression, and records.
#pragma once

#include "frame/configuration.h"
#include "storage/status.h"
#include "storage/url_record.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kestrine::bench {

// The directory of the run, without a '/' at its end.
[[nodiscard]] const std::string& directory();

// The log files of one device and date.
struct LogNode {
    std::string account; // path of the account
    std::string typeDirectory;
    std::vector<std::string> payloads; // of the blocks as stored, without their headers
    uint32_t blockBytes = 0;           // bounds each block's records
    uint64_t rawBytes = 0;
    uint64_t records = 0;
};
// 64 MiB of visits to so many hosts, skewed, in 4 files of 16 blocks.
[[nodiscard]] const LogNode& logNode(uint32_t hosts, bool compressed);

struct Host {
    std::string name;
    uint64_t key = 0;
    uint64_t count = 0; // falls with the rank as visits do
    uint32_t type = 0;

    [[nodiscard]] UrlRecordView view() const { return {key, count, type, name}; }
};
// A million hosts in key order.
[[nodiscard]] const std::vector<Host>& hosts();

// A finished temporary file of the given hosts, ascending by index.
struct HostFile {
    std::string path;
    uint64_t records = 0;
    uint64_t bytes = 0; // of records
};
[[nodiscard]] HostFile writeHostFile(const std::string& name, const std::vector<size_t>& indices);
// The status that such files carry.
[[nodiscard]] DayStatus someStatus();

// Settings for its scope: these lines of section "urlstat", and directories of the run's own.
class ScopedSettings {
public:
    explicit ScopedSettings(const std::string& lines);
    ~ScopedSettings();
    ScopedSettings(const ScopedSettings&) = delete;
    ScopedSettings& operator=(const ScopedSettings&) = delete;

    // Removes what was written below the two directories.
    static void clear();

private:
    std::filesystem::path m_workingDirectory;
};

// The settings, loaded if they are not.
[[nodiscard]] const Configuration& loadedSettings();

// Ends the program: a benchmark of something that fails would measure nothing.
void require(bool good, const char* what);

} // namespace kestrine::bench
