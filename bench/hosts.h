// Counted hosts, and files of them.
#pragma once

#include "storage/status.h"
#include "storage/url_record.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine::bench {

struct Host {
    std::string name;
    uint64_t key = 0;
    uint64_t count = 0; // falls with the rank as visits do
    uint32_t type = 0;

    [[nodiscard]] UrlRecordView view() const { return {key, count, type, name}; }
};

// So many of them, in key order.
[[nodiscard]] std::vector<Host> makeHosts(uint32_t number);

// The account and the status of all such files.
constexpr const char* g_account = "log_data/bench";
constexpr const char* g_date = "20240301";
[[nodiscard]] DayStatus someStatus(const std::string& date = g_date);

// Writes a finished file of these, which ascend by key.
void writeHostFile(const std::string& path, const std::vector<const Host*>& hosts,
                   const std::string& date = g_date);

} // namespace kestrine::bench
