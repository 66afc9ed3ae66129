// What the statistics of a world must be, counted without the service: only the keys of the hosts
// are computed with its function. And what they are.
#pragma once

#include "support/url_file_helper.h"
#include "worldgen/totals.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine::test {

// The files of a statistics tree as text, by name below its root ("alice/20130101/topn/all.top"):
// one line per record in stored order, "KEY COUNT TYPE HOST", then "total N", then one line per
// entry of the status.
using Lines = std::vector<std::string>;
using TreeText = std::map<std::string, Lines>;

class ExpectedWorld {
public:
    void add(const worldgen::Totals& totals);
    void visit(std::string_view account, int date, const std::string& host, uint32_t type,
               uint64_t times = 1);
    // The date has a day file whose status names this node with the file's number.
    void node(std::string_view account, int device, int date, int newestFile);

    // Day, week (Sunday to Saturday) and month files with their top lists. A date that is none of
    // the calendar has a day file only.
    [[nodiscard]] TreeText tree() const;

private:
    struct Day {
        std::map<uint64_t, TestRecord> records;
        std::map<std::string, int> nodes; // newest file read, by "alice/devid_9/20120303"
    };
    std::map<std::string, std::map<int, Day>, std::less<>> m_accounts; // by name and date
};

// Reads the files of a tree, given by their names below it, whose log data lies in `logData`.
// Backups and "debug" are left out; a file that has no place in the tree between two passes has the
// line "unexpected". The counter of a date in a week or month file is mentioned when it is not that
// of the day file.
[[nodiscard]] TreeText readTree(const std::string& statRoot, const std::set<std::string>& names,
                                const std::string& logData);

// The first few differences, one a line; nothing when there are none.
[[nodiscard]] std::string differences(const TreeText& expected, const TreeText& found);

} // namespace kestrine::test
