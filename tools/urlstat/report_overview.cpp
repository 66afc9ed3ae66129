// The overview of the reports, and the names of the pages to which it leads.
#include "bytes_text.h"
#include "platform/platform.h"
#include "report_chart.h"
#include "report_page.h"
#include "report_words.h"

#include <algorithm>
#include <cstdio>
#include <span>

namespace kestrine::viewer {

namespace {

Data overviewMonth(const OverviewRow& row) {
    const uint64_t top = std::max<uint64_t>(highest(row.days, &Figures::visits), 1);
    return Object{{"month", monthWords(row.month.begin)},
                  {"page", row.page},
                  {"any", Data(!row.page.empty())},
                  {"visits", thousands(row.total.visits)},
                  {"hosts", thousands(row.total.hosts)},
                  {"width", std::to_string(row.days.size())},
                  {"words", "Visits of each day, at most " + thousands(top)},
                  {"columns", columns(row.days, &Figures::visits, "visits", top)}};
}

} // namespace

std::string pageName(const std::string& account, const PeriodDir& month,
                     std::span<const std::string> accounts) {
    std::string name;
    for (const char c : account) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        const bool within = !name.empty() && (c == '.' || c == '-' || c == '_');
        if (letter || (c >= '0' && c <= '9') || within) {
            name += c;
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "~%02x", static_cast<uint8_t>(c));
            name += escaped;
        }
    }
    int number = 1;
    for (const std::string& other : accounts) {
        if (other == account) {
            break;
        }
        number += platform().sameFileName(other, account) ? 1 : 0;
    }
    name += number > 1 ? "~" + std::to_string(number) : "";
    return name + "-" + dateName(month.begin).substr(0, 7) + ".html";
}

std::string overviewPage(const std::vector<OverviewRow>& rows) {
    Data accounts(Data::type::list);
    for (auto begin = rows.begin(); begin != rows.end();) {
        const auto end = std::find_if(begin, rows.end(), [begin](const OverviewRow& row) {
            return row.account != begin->account;
        });
        accounts << Object{{"account", utf8Text(begin->account)},
                           {"months", listOf(std::span(begin, end), overviewMonth)}};
        begin = end;
    }
    Data data = pageData();
    data["accounts"] = std::move(accounts);
    return renderPage(texts::g_overview, data);
}

} // namespace kestrine::viewer
