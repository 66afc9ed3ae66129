#include "support/expected_world.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <set>

namespace kestrine::test {

namespace {

using std::chrono::sys_days;
using std::chrono::year_month_day;
using Records = std::map<uint64_t, TestRecord>;

constexpr size_t g_listLength = 10000;
constexpr int g_mostDifferences = 6;

std::string textOf(year_month_day date) {
    return std::to_string(int(date.year()) * 10000 + int(unsigned(date.month())) * 100 +
                          int(unsigned(date.day())));
}

std::string weekOf(year_month_day date) {
    const sys_days day(date);
    const sys_days sunday = day - (std::chrono::weekday(day) - std::chrono::Sunday);
    return "week" + textOf(sunday) + "_" + textOf(sunday + std::chrono::days(6));
}

std::string monthOf(year_month_day date) {
    const std::chrono::year_month month(date.year(), date.month());
    return "mon" + textOf(month / 1) + "_" + textOf(month / std::chrono::last);
}

// Names of the files that hold the date.
std::vector<std::string> holdersOf(int date) {
    const year_month_day day{std::chrono::year(date / 10000),
                             std::chrono::month(unsigned(date / 100 % 100)),
                             std::chrono::day(unsigned(date % 100))};
    std::vector<std::string> names = {std::to_string(date) + "/daycrcsort"};
    if (day.ok()) {
        names.push_back(weekOf(day) + "/weekcrcsort");
        names.push_back(monthOf(day) + "/moncrcsort");
    }
    return names;
}

void addTo(Records& sums, const TestRecord& record) {
    if (const auto [place, added] = sums.try_emplace(record.key, record); !added) {
        place->second.count += record.count;
    }
}

Lines linesOf(const TestRecords& records) {
    Lines lines;
    uint64_t total = 0;
    for (const TestRecord& record : records) {
        char numbers[64];
        std::snprintf(numbers, sizeof numbers, "%016" PRIx64 " %" PRIu64 " %" PRIu32 " ",
                      record.key, record.count, record.type);
        lines.push_back(numbers + record.url);
        total += record.count;
    }
    lines.push_back("total " + std::to_string(total));
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

void addTopLists(TreeText& tree, const std::string& directory, const TestRecords& records) {
    std::map<std::string, TestRecords> lists = {{"all", records}};
    for (const TestRecord& record : records) {
        lists[std::to_string(record.type)].push_back(record);
    }
    for (auto& [name, list] : lists) {
        tree[directory + "/topn/" + name + ".top"] = topLinesOf(std::move(list));
    }
}

bool endsWithAny(const std::string& text, std::initializer_list<std::string_view> ends) {
    return std::ranges::any_of(ends, [&text](std::string_view end) { return text.ends_with(end); });
}

std::string fromLast(const std::string& path, char separator) {
    return path.substr(path.rfind(separator) + 1);
}

// `dayCounters` by date; those of day files are added.
Lines readLines(const std::string& path, const std::string& logData,
                std::map<std::string, int32_t>& dayCounters) {
    const bool weekMonth = endsWithAny(path, {"weekcrcsort", "moncrcsort"});
    const UrlFileContent content =
        readUrlFile(path, weekMonth ? g_weekMonStatusType : g_dayStatusType);
    Lines lines = linesOf(content.records);
    if (!content.whole) {
        lines.push_back("cannot be read to its end");
        return lines;
    }
    lines.back() = "total ";
    Lines status;
    if (weekMonth) {
        lines.back() += std::to_string(content.weekMonStatus->totalCount());
        for (const DateEntry& entry : content.weekMonStatus->entries()) {
            const std::string date = fromLast(entry.path, '/');
            const bool fits = dayCounters.contains(date) && dayCounters[date] == entry.counter;
            status.push_back((entry.path.ends_with("/new/" + date) ? "date " + date : entry.path) +
                             (fits ? "" : " with counter " + std::to_string(entry.counter)));
        }
    } else {
        lines.back() += std::to_string(content.dayStatus->totalCount());
        for (const NodeEntry& entry : content.dayStatus->entries()) {
            const bool node = entry.path.starts_with(logData + "/");
            status.push_back(node ? "node " + entry.path.substr(logData.size() + 1) + " file " +
                                        std::to_string(entry.fileNumber)
                                  : entry.path);
            dayCounters[fromLast(entry.path, '/')] = content.dayStatus->newCounter();
        }
    }
    std::ranges::sort(status);
    lines.insert(lines.end(), status.begin(), status.end());
    return lines;
}

} // namespace

void ExpectedWorld::visit(std::string_view account, int date, const std::string& host,
                          uint32_t type, uint64_t times) {
    addTo(m_accounts[std::string(account)][date].records, recordOf(host, times, type));
}

void ExpectedWorld::node(std::string_view account, int device, int date, int newestFile) {
    const std::string name(account);
    m_accounts[name][date]
        .nodes[name + "/devid_" + std::to_string(device) + "/" + std::to_string(date)] = newestFile;
}

void ExpectedWorld::add(const worldgen::Totals& totals) {
    for (const auto& [account, days] : totals.accounts) {
        for (const auto& [date, day] : days) {
            for (const auto& [host, total] : day.hosts) {
                visit(account, date, host, total.type, total.visits);
            }
        }
    }
    for (const auto& [path, end] : totals.nodes) {
        const int date = std::stoi(fromLast(path, '/'));
        m_accounts[path.substr(0, path.find("/devid_"))][date].nodes[path] = end.file;
    }
}

TreeText ExpectedWorld::tree() const {
    TreeText tree;
    for (const auto& [account, days] : m_accounts) {
        std::map<std::string, std::pair<Records, Lines>> files; // with the lines of the status
        for (const auto& [date, day] : days) {
            for (const std::string& name : holdersOf(date)) {
                auto& [records, status] = files[account + "/" + name];
                for (const auto& [key, record] : day.records) {
                    addTo(records, record);
                }
                if (!name.ends_with("daycrcsort")) {
                    status.push_back("date " + std::to_string(date));
                    continue;
                }
                for (const auto& [node, file] : day.nodes) {
                    status.push_back("node " + node + " file " + std::to_string(file));
                }
            }
        }
        for (const auto& [name, file] : files) {
            TestRecords records;
            std::ranges::transform(file.first, std::back_inserter(records),
                                   [](const auto& entry) { return entry.second; });
            Lines& lines = tree[name] = linesOf(records);
            lines.insert(lines.end(), file.second.begin(), file.second.end());
            addTopLists(tree, name.substr(0, name.rfind('/')), records);
        }
    }
    return tree;
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
        const bool known =
            endsWithAny(name, {"/daycrcsort", "/weekcrcsort", "/moncrcsort", ".top"});
        tree[name] =
            known ? readLines(statRoot + "/" + name, logData, dayCounters) : Lines{"unexpected"};
    }
    return tree;
}

std::string differences(const TreeText& expected, const TreeText& found) {
    std::string text;
    int number = 0;
    const auto compare = [&](const std::string& name) {
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
    };
    std::set<std::string> names;
    for (const TreeText* const tree : {&expected, &found}) {
        for (const auto& [name, lines] : *tree) {
            names.insert(name);
        }
    }
    std::ranges::for_each(names, compare);
    return text;
}

} // namespace kestrine::test
