// Any number of statistics files read as one, in bounded memory.
#pragma once

#include "merge/merging_reader.h"
#include "stat_tree.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kestrine::viewer {

// A file of the system's directory for temporary ones, under a name that nobody else takes; it goes
// with its owner.
class TemporaryFile {
public:
    TemporaryFile();
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

class MergedFiles {
public:
    // Most files that are open at once, each with a block buffer of 2 MiB. More are merged into
    // temporary files first, in the system's directory for such.
    static constexpr size_t g_mostOpen = 100;

    // Opens the current files of the periods; those without one are passed over. Throws Failure.
    explicit MergedFiles(std::span<const PeriodEntry> periods);
    MergedFiles(const MergedFiles&) = delete;
    MergedFiles& operator=(const MergedFiles&) = delete;

    // The next record by key, valid until the next call; false at the end. Throws Failure.
    [[nodiscard]] bool next(UrlRecordView& record);
    // Visits in all files, by their statuses.
    [[nodiscard]] uint64_t total() const { return m_total; }
    [[nodiscard]] size_t files() const { return m_count; }

private:
    using Files = std::vector<std::unique_ptr<UrlFile>>;

    [[nodiscard]] Files mergeToTemporary(const Files& files);

    uint64_t m_total = 0;
    size_t m_count = 0;
    std::deque<TemporaryFile> m_temporary; // closed before they go
    Files m_files;
    MergingReader m_reader;
};

} // namespace kestrine::viewer
