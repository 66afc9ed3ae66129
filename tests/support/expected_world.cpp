#include "support/expected_world.h"

#include "tree/names.h"
#include "tree/period.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kestrine::test {

namespace {

constexpr size_t g_listLength = 10000;
constexpr int g_mostDifferences = 6;
constexpr std::array<std::string_view, 4> g_knownEnds = {"/daycrcsort", "/weekcrcsort",
                                                         "/moncrcsort", ".top"};

Lines linesOf(const TestRecords& records) {
    Lines lines;
    for (const auto& [key, count, type, url] : records) {
        lines.push_back(std::to_string(key) + " " + std::to_string(count) + " " +
                        std::to_string(type) + " " + url);
    }
    lines.push_back("total " + std::to_string(totalOf(records)));
    return lines;
}

// Count descending, key ascending.
Lines topLinesOf(TestRecords records) {
    std::ranges::sort(records, [](const TestRecord& a, const TestRecord& b) {
        return std::pair(b.count, a.key) < std::pair(a.count, b.key);
    });
    records.resize(std::min(records.size(), g_listLength));
    Lines lines = linesOf(records);
    lines.push_back("just for test");
    return lines;
}

// `dayCounters` by date; those of day files are added.
Lines readLines(const std::string& path, const std::string& logData,
                std::map<std::string, int32_t>& dayCounters) {
    const UrlFileContent content = readUrlFile(path, statusTypeOf(path));
    Lines lines = linesOf(content.records);
    if (!content.whole) {
        lines.push_back("cannot be read to its end");
        return lines;
    }
    lines.back() = "total " + std::to_string(content.total);
    Lines status;
    for (const DateEntry& entry :
         content.weekMonStatus ? content.weekMonStatus->entries() : std::vector<DateEntry>()) {
        const std::string date(names::lastComponent(entry.path));
        const bool fits = dayCounters.contains(date) && dayCounters[date] == entry.counter;
        status.push_back((entry.path.ends_with("/new/" + date) ? "date " + date : entry.path) +
                         (fits ? "" : " with counter " + std::to_string(entry.counter)));
    }
    for (const NodeEntry& entry :
         content.dayStatus ? content.dayStatus->entries() : std::vector<NodeEntry>()) {
        const bool node = entry.path.starts_with(logData + "/");
        status.push_back(node ? "node " + entry.path.substr(logData.size() + 1) + " file " +
                                    std::to_string(entry.fileNumber)
                              : entry.path);
        dayCounters[std::string(names::lastComponent(entry.path))] =
            content.dayStatus->newCounter();
    }
    std::ranges::sort(status);
    lines.insert(lines.end(), status.begin(), status.end());
    return lines;
}

} // namespace

std::map<std::string, ExpectedFile> expectedFiles(const worldgen::Totals& totals) {
    std::map<std::string, ExpectedFile> files;
    for (const auto& [account, days] : totals.accounts) {
        for (const auto& [number, day] : days) {
            TestRecords records;
            for (const auto& [host, total] : day.hosts) {
                records.push_back(recordOf(host, total.visits, total.type));
            }
            const std::string date = std::to_string(number);
            std::vector<PeriodOfDate> periods;
            (void)periodsOfDate(account, date, periods);
            for (const PeriodOfDate& period : periods) {
                ExpectedFile& file = files[period.files.formal];
                file.records = summed({file.records, records});
                if (period.period != Period::Day) {
                    file.status.push_back("date " + date);
                }
            }
        }
    }
    for (const auto& [node, end] : totals.nodes) {
        const std::string directory =
            names::dayDir(node.substr(0, node.find('/')), names::lastComponent(node));
        files[names::formalFile(directory, Period::Day)].status.push_back(
            "node " + node + " file " + std::to_string(end.file));
    }
    return files;
}

TreeText expectedTree(const worldgen::Totals& totals) {
    TreeText tree;
    for (const auto& [name, file] : expectedFiles(totals)) {
        Lines& lines = tree[name] = linesOf(file.records);
        lines.insert(lines.end(), file.status.begin(), file.status.end());
        for (auto& [list, text] : topListsOf(file.records)) {
            tree[names::join(names::parentOf(name), list)] = text;
        }
    }
    return tree;
}

TreeText topListsOf(const TestRecords& records) {
    std::map<std::string, TestRecords> byType = {{"all", records}};
    for (const TestRecord& record : records) {
        byType[std::to_string(record.type)].push_back(record);
    }
    TreeText lists;
    for (auto& [name, list] : byType) {
        lists["topn/" + name + ".top"] = topLinesOf(std::move(list));
    }
    return lists;
}

TreeText readTree(const std::string& statRoot, const std::set<std::string>& names,
                  const std::string& logData) {
    TreeText tree;
    std::map<std::string, int32_t> dayCounters;
    std::string account;
    for (const std::string& name : names) { // in this order, day files come first
        if (name.starts_with("debug/") || name.ends_with("_backup") || name == ".kestrine.lock") {
            continue;
        }
        if (!name.starts_with(account + "/")) {
            account = name.substr(0, name.find('/'));
            dayCounters.clear();
        }
        const bool known = std::ranges::any_of(
            g_knownEnds, [&name](std::string_view end) { return name.ends_with(end); });
        tree[name] =
            known ? readLines(statRoot + "/" + name, logData, dayCounters) : Lines{"unexpected"};
    }
    return tree;
}

std::string differences(const TreeText& expected, const TreeText& found) {
    std::string text;
    int number = 0;
    TreeText all = expected;
    all.insert(found.begin(), found.end());
    for (const auto& [name, unused] : all) {
        const Lines none = {"no such file"};
        const Lines& e = expected.contains(name) ? expected.at(name) : none;
        const Lines& f = found.contains(name) ? found.at(name) : none;
        const auto [ei, fi] = std::ranges::mismatch(e, f);
        if ((ei != e.end() || fi != f.end()) && ++number <= g_mostDifferences) {
            text += name + " line " + std::to_string(ei - e.begin()) + " of " +
                    std::to_string(e.size()) + " (found " + std::to_string(f.size()) + ")\n" +
                    "  expected " + (ei != e.end() ? ei->substr(0, 100) : "no more") + "\n" +
                    "  found    " + (fi != f.end() ? fi->substr(0, 100) : "no more") + "\n";
        }
    }
    return text;
}

} // namespace kestrine::test
