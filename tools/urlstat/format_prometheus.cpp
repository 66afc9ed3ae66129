// Text format 0.0.4:
//   # HELP NAME words
//   # TYPE NAME gauge
//   NAME{label="value",...} NUMBER
// In values backslash, double quote and line feed are escaped by a backslash; control characters
// and what is no UTF-8 is escaped before, as everywhere (bytes_text.h).
#include "backlog.h"
#include "bytes_text.h"

#include <algorithm>
#include <utility>

namespace kestrine::viewer {

namespace {

using Values = std::map<std::string, uint64_t>; // by the labels, in braces or empty

std::string label(const char* name, const std::string& bytes) {
    std::string text = std::string(name) + "=\"";
    for (const char c : utf8Text(bytes)) {
        if (c == '\\' || c == '"') {
            text += '\\';
        }
        text += c;
    }
    return text + '"';
}

std::string labels(const std::string& account) {
    return "{" + label("account", account) + "}";
}

std::string labels(const BacklogRow& row) {
    return "{" + label("account", row.account) + "," + label("device", row.device) + "}";
}

// What all metrics of one name say. Without a value nothing is known, and nothing is said.
std::string metric(const std::string& name, const char* help, const Values& values) {
    if (values.empty()) {
        return "";
    }
    std::string text =
        "# HELP kestrine_" + name + " " + help + "\n# TYPE kestrine_" + name + " gauge\n";
    for (const auto& [where, value] : values) {
        text.append("kestrine_").append(name).append(where).append(" ");
        text.append(std::to_string(value)).append("\n");
    }
    return text;
}

} // namespace

std::string prometheusText(const Backlog& backlog) {
    Values up;
    Values files;
    Values bytes;
    Values oldest;
    Values newDay;
    Values visits;
    if (backlog.service == LockResult::HeldByAnother || backlog.service == LockResult::Locked) {
        up[""] = backlog.service == LockResult::HeldByAnother;
    }
    for (const auto& [account, count] : backlog.visits) {
        visits[labels(account)] = count;
        newDay[labels(account)] = 0;
    }
    for (const BacklogRow& row : backlog.rows) {
        if (row.device.empty()) {
            newDay[labels(row.account)] += row.newDayFiles;
            continue;
        }
        const std::string where = labels(row);
        const auto seconds = static_cast<uint64_t>(row.oldestSeconds.value_or(0));
        files[where] += row.waitingFiles;
        bytes[where] += row.waitingBytes;
        oldest[where] = std::max(oldest[where], seconds);
    }
    return metric("up", "Whether a service runs on these statistics.", up) +
           metric("waiting_log_files", "Log files that are not counted yet.", files) +
           metric("waiting_log_bytes", "Bytes of the log files that are not counted yet.", bytes) +
           metric("oldest_waiting_log_seconds",
                  "Age of the oldest log file that is not counted yet, 0 without one.", oldest) +
           metric("waiting_new_day_files",
                  "New-day files that day, week or month files do not hold yet.", newDay) +
           metric("counted_visits", "Visits in all month files.", visits) +
           metric("unreadable_statistics", "Statistics files that could not be read.",
                  {{"", backlog.problems.size()}});
}

} // namespace kestrine::viewer
