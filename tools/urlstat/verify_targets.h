// Which files are to be checked, and where they belong.
#pragma once

#include "checked_file.h"
#include "stat_tree.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrine::viewer {

// Account and dates that a file's place says it is of.
struct FilePlace {
    std::string account;
    PeriodDir dir;
};

struct VerifyTarget {
    std::string path;
    FileKind kind = FileKind::Day;
    std::optional<FilePlace> place;    // none outside a tree, and for top lists
    std::optional<PeriodEntry> period; // its file and lists are checked together
    uint64_t bytes = 0;                // of the file, without lists
};

// Days, weeks, months and new-day files of an account.
void addAccountTargets(const StatTree& tree, const std::string& account,
                       std::vector<VerifyTarget>& targets);
// A file, or everything of the statistics in a directory. Throws Failure when it cannot be opened.
void addPathTargets(const std::string& path, std::vector<VerifyTarget>& targets);

} // namespace kestrine::viewer
