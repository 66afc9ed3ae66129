// A disk in memory: fuzz targets touch no real one.
#pragma once

#include "support/forwarding_platform.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kestrine::fuzz {

using Bytes = std::vector<uint8_t>;

// Files by their paths; the directories above a file exist with it. Time stands still, space never
// ends, nothing is listed, and files opened for appending (the service's own log) are refused.
class MemoryPlatform : public test::ForwardingPlatform {
public:
    // More than any output of a target needs: a writer that passes it would never end.
    static constexpr size_t g_largestFile = size_t{64} << 20;

    MemoryPlatform() : ForwardingPlatform(systemPlatform()) {}

    // Removes all files and forgets the executable's path.
    void clear();
    void put(const std::string& path, Bytes bytes);
    // Content of an existing file.
    [[nodiscard]] const Bytes& content(const std::string& path) const;

    std::string executable; // empty: unknown, so that no log file is looked for
    int64_t modified = 1;   // of every file

    uint32_t lastError() const override { return m_lastError; }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override;
    bool exists(const std::string& path) override;
    int info(const std::string& path, FileInfo& info) override;
    int removeFile(const std::string& path) override;
    int rename(const std::string& from, const std::string& to) override;
    int makeDirectory(const std::string&) override { return 0; }
    int removeDirectory(const std::string&) override { return 0; }
    int syncDirectory(const std::string&) override { return 0; }
    int find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) override;
    int freeSpace(const std::string& path, uint64_t& bytes) override;
    int removeTree(const std::string& command, const std::string& path) override;
    int move(const std::string& command, const std::string& from, const std::string& to) override;
    int64_t now() override { return 1'600'000'000; }
    LocalTime localTime() override { return {2020, 9, 13, 12, 26, 40}; }
    uint32_t tickCount() override { return 1000; }
    void sleep(uint32_t milliseconds) override;
    std::string executablePath() override { return executable; }

private:
    using Content = std::shared_ptr<Bytes>;

    int notFound();

    std::map<std::string, Content> m_files;
    uint32_t m_lastError = 0;
};

// The platform that all targets use; in place from the start of the process.
MemoryPlatform& memory();

} // namespace kestrine::fuzz
