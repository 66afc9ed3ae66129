// The pages: one of a month, and the overview that leads to them. Each is one file that needs no
// network, and no script to be read. Templates, style and script are the files in report/.
#pragma once

#include "report_data.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine::viewer {

// A month as the overview shows it.
struct OverviewRow {
    std::string account;
    PeriodDir month;
    std::string page; // file name; empty when there is none, since the month cannot be read
    Figures total;
    std::vector<DayFigures> days;
};

// The name of a month's page: "alice-2024-03.html". Of an account's name what is not a letter, a
// digit or one of "-_." within is written as "~" and two hexadecimal digits a byte, so that it
// means the same to every file system and in a link. To a file system that takes no notice of
// letter case two accounts may be one: each but the first of them, in the order of `accounts`, all
// there are, has its number behind a "~": "alice~2-2024-03.html".
[[nodiscard]] std::string pageName(const std::string& account, const PeriodDir& month,
                                   std::span<const std::string> accounts);

// `overview` is a link, empty without one.
[[nodiscard]] std::string monthPage(const MonthReport& report, const std::string& overview);
// Rows in order; those of an account follow each other.
[[nodiscard]] std::string overviewPage(const std::vector<OverviewRow>& rows);

// The files in report/, compiled in.
namespace texts {
extern const std::string_view g_page;
extern const std::string_view g_overview;
extern const std::string_view g_style;
extern const std::string_view g_script;
} // namespace texts

} // namespace kestrine::viewer
