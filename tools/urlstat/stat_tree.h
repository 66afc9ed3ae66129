// The statistics tree that is looked at: where it is, its accounts and their periods. Nothing is
// written to it.
#pragma once

#include "date_text.h"
#include "tree/period.h"

#include <string>
#include <vector>

namespace kestrine::viewer {

// Where the trees of an installation are.
struct TreePlace {
    std::string root;    // of the statistics
    std::string logData; // empty when it is not known
};

// Throws Failure when the statistics root is no directory.
void requireRoot(const std::string& root);

// `root`, if given, is the statistics' root; its log data is taken for the directory above it if
// that is called "log_data". Otherwise the settings tell, by the rules of the service: `config`, if
// given, or "config/urlstat.ini" of the working directory; the root need not be there yet. Throws
// Failure.
[[nodiscard]] TreePlace findTree(const std::string& root, const std::string& config);

// A directory of a day, week or month.
struct PeriodEntry {
    std::string account;
    PeriodDir dir;
    PeriodFiles files;
};

// With '/' between components and none at the end.
[[nodiscard]] std::string slashes(std::string path);

class StatTree {
public:
    explicit StatTree(std::string root) : m_root(std::move(root)) {}

    [[nodiscard]] const std::string& root() const { return m_root; }
    // In order of their names: directories that hold a period or new-day files.
    [[nodiscard]] std::vector<std::string> accounts() const;
    // Days, weeks, months, each in ascending order.
    [[nodiscard]] std::vector<PeriodEntry> periods(const std::string& account) const;
    [[nodiscard]] std::string accountDir(const std::string& account) const;

private:
    std::string m_root;
};

// The accounts that were named, all of the tree's if `all`, or its only one. Throws Failure.
[[nodiscard]] std::vector<std::string>
chosenAccounts(const StatTree& tree, const std::vector<std::string>& named, bool all);

// A period's name for people and programs: "2024-03-05", "2024-03-03..2024-03-09".
[[nodiscard]] std::string periodName(const PeriodDir& dir);
// "day", "week", "month".
[[nodiscard]] const char* periodKindName(Period period);

} // namespace kestrine::viewer
