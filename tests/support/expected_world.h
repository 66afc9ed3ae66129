// What the statistics of a world must be, counted without the service: only the keys of the hosts
// and the names of the files come from it. And what they are.
#pragma once

#include "support/url_file_helper.h"
#include "worldgen/totals.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kestrine::test {

// The files of a statistics tree as text, by name below its root ("alice/20130101/topn/all.top"):
// one line per record in stored order, "KEY COUNT TYPE HOST", then "total N", then one line per
// entry of the status.
using Lines = std::vector<std::string>;
using TreeText = std::map<std::string, Lines>;

// Day, week and month files. A date that is none of the calendar has a day file only.
struct ExpectedFile {
    TestRecords records;
    Lines status;
};
[[nodiscard]] std::map<std::string, ExpectedFile> expectedFiles(const worldgen::Totals& totals);
[[nodiscard]] TreeText expectedTree(const worldgen::Totals& totals); // with their top lists

// The top lists of a directory with these records, by name below it.
[[nodiscard]] TreeText topListsOf(const TestRecords& records);

// Reads the files of a tree, given by their names below it, whose log data lies in `logData`.
// Backups and "debug" are left out; a file that has no place in the tree between two passes has the
// line "unexpected". The counter of a date in a week or month file is mentioned when it is not that
// of the day file.
[[nodiscard]] TreeText readTree(const std::string& statRoot, const std::set<std::string>& names,
                                const std::string& logData);

// The first few differences, one a line; nothing when there are none.
[[nodiscard]] std::string differences(const TreeText& expected, const TreeText& found);

} // namespace kestrine::test
