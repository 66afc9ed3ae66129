#include "storage/ownership.h"

#include "platform/platform.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {

namespace {

// As the file system compares names: one directory may have been written in other letter cases.
bool isAccount(std::string_view name, std::string_view account) {
    return platform().sameFileName(std::string(name), std::string(account));
}

} // namespace

// No writer leaves a status without entries, and one would not say where it belongs.
bool belongsToDay(const DayStatus& status, std::string_view account, std::string_view date) {
    return !status.entries().empty() &&
           std::ranges::all_of(status.entries(), [&](const NodeEntry& node) {
               return names::lastComponent(node.path) == date &&
                      isAccount(names::accountOfNode(node.path), account);
           });
}

// A counter out of range would make every merge pass over the new-day files of its date.
bool belongsToPeriod(const WeekMonStatus& status, std::string_view account, std::string_view begin,
                     std::string_view end) {
    return !status.entries().empty() &&
           std::ranges::all_of(status.entries(), [&](const DateEntry& entry) {
               const std::string_view date = names::lastComponent(entry.path);
               const std::string_view accountDir = names::parentOf(names::parentOf(entry.path));
               return names::isCalendarDate(date) && date >= begin && date <= end &&
                      isAccount(names::lastComponent(accountDir), account) && entry.counter >= -1 &&
                      entry.counter <= g_lastNewDayNumber;
           });
}

} // namespace kestrine
