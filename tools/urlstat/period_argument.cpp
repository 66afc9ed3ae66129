#include "period_argument.h"

#include "date_text.h"
#include "failure.h"
#include "stat_tree.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine::viewer {

namespace {

bool isMonth(const std::string& digits) {
    return digits.size() == 6 && names::isCalendarDate(digits + "01");
}

} // namespace

std::string parseDate(const std::string& option, const std::string& text) {
    std::string date = dateDigits(text);
    if (!names::isCalendarDate(date)) {
        throw usage(option + ": " + text + " is no date; write it as 2024-03-05");
    }
    return date;
}

PeriodDir parsePeriod(Period period, const std::string& option, const std::string& text) {
    const std::string digits = dateDigits(text);
    const std::string date =
        period == Period::Month && isMonth(digits) ? digits + "01" : parseDate(option, text);
    PeriodDir dir{period, date, date};
    const PeriodKind& kind = kindOf(period);
    if (kind.range != nullptr && kind.range(date, dir.begin, dir.end) != 0) {
        throw usage(option + ": no period holds " + text);
    }
    return dir;
}

PeriodDir parsePeriod(const std::string& option, const std::string& text) {
    for (const PeriodKind& kind : periodKinds()) {
        const std::string prefix = std::string(periodKindName(kind.period)) + ":";
        if (text.starts_with(prefix)) {
            return parsePeriod(kind.period, option, text.substr(prefix.size()));
        }
    }
    return parsePeriod(isMonth(dateDigits(text)) ? Period::Month : Period::Day, option, text);
}

std::string periodPath(const std::string& accountDir, const PeriodDir& dir) {
    return dir.period == Period::Day ? names::dayDir(accountDir, dir.begin)
                                     : names::periodDir(accountDir, dir.period, dir.begin, dir.end);
}

} // namespace kestrine::viewer
