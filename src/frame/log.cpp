// One line of the log:
//   1. inside the critical section: read the local time and open the day's file for appending;
//      when it does not exist yet, make its directory and delete the oldest files first
//   2. outside it: one write of header, message and line feed, then close
#include "frame/log.h"

#include "frame/bytes.h"
#include "frame/install_root.h"
#include "frame/qualified_name.h"
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace kestrine {

CRealTimeLog g_log;

namespace {

constexpr size_t g_maxMessage = 1023; // bytes of a message in the file
constexpr size_t g_filesToKeep = 29;  // older files that remain beside a new one

bool g_toStderr = false;
bool g_errorsOnly = false;
bool g_discarding = false;

bool isDropped(LogLevel level) {
    return g_discarding || (g_errorsOnly && level != LogLevel::Error);
}

// Names carry their date as year, month, day, so that the oldest sort first.
void cleanUp(const std::string& directory, size_t filesToKeep) {
    std::vector<FindEntry> entries;
    FindStep step{};
    // A listing that could not be closed is complete all the same.
    if (platform().find(directory + "kestrine*.txt", entries, step) != 0 &&
        step != FindStep::Close) {
        return;
    }
    std::ranges::sort(entries, {}, &FindEntry::name);
    for (size_t i = 0; i + filesToKeep < entries.size(); ++i) {
        // What cannot be removed today is the oldest tomorrow, too.
        (void)platform().removeFile(directory + entries[i].name);
    }
}

// Reports nothing itself: it would be called again by its own report.
std::unique_ptr<File> openToday(const LocalTime& today) {
    const std::string place = install::logDirectory();
    if (place.empty()) {
        return nullptr;
    }
    const std::string directory = place + "/";
    char name[64];
    std::snprintf(name, sizeof name, "kestrine%4d%02d%02d.txt", today.year, today.month, today.day);
    const std::string path = directory + name;
    if (!platform().exists(path)) {
        if (!platform().exists(directory)) {
            // When these fail, so does the opening below, and the line is dropped.
            (void)platform().makeDirectory(place.substr(0, place.rfind('/')));
            (void)platform().makeDirectory(place);
        }
        cleanUp(directory, g_filesToKeep);
    }
    return platform().open(path, OpenMode::Append);
}

std::string header(int32_t level, const LocalTime& now) {
    static constexpr char letters[] = {'i', 'w', 'e', 'd', 'r'};
    const auto letter = static_cast<size_t>((level % 5 + 5) % 5);
    char text[64];
    std::snprintf(text, sizeof text, " %c %2d:%2d:%2d", letters[letter], now.hour, now.minute,
                  now.second);
    return text;
}

__attribute__((format(KESTRINE_PRINTF_DIALECT, 1, 0))) std::string formatText(const char* format,
                                                                              va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0) {
        return {};
    }
    std::string text(static_cast<size_t>(length) + 1, '\0'); // room for the terminator
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

// Hosts and names come from outside: a control byte in them is written as \xNN, so that nobody can
// forge a line.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            result += c;
            continue;
        }
        constexpr char digits[] = "0123456789abcdef";
        result += "\\x";
        result += digits[byte >> 4];
        result += digits[byte & 15];
    }
    return result;
}

std::string atPlace(const CodePlace& where, const std::string& text) {
    return qualifiedName(where.function) + " " + std::to_string(where.line) + " " + escaped(text);
}

void writeConsole(LogLevel level, const std::string& message) {
    static constexpr char prefixes[] = {'I', 'W', 'E', 'D'};
    std::string line;
    line += prefixes[static_cast<size_t>(level)];
    line += ':';
    line += message;
    line += '\n';
    platform().writeConsole(line, g_toStderr);
}

void writeFile(LogLevel level, const std::string& message) {
    if (!g_toStderr) {
        (void)g_log.write(static_cast<int32_t>(level), " " + message);
    }
}

} // namespace

int CRealTimeLog::write(int32_t level, std::string_view message) {
    LocalTime now;
    std::unique_ptr<File> file;
    {
        // Two threads log, the signals' and the working one: one of them makes the day's file.
        const std::lock_guard<std::mutex> lock(m_openLock);
        now = platform().localTime();
        file = openToday(now);
    }
    if (!file) {
        return 0;
    }
    std::string line = header(level, now);
    line += message.substr(0, g_maxMessage);
    line += '\n';
    // In one call, which appends: lines of two threads do not mix. A full disk costs the line only.
    (void)file->write(asBytes(line));
    (void)file->close();
    return 1;
}

void logMessage(LogLevel level, const CodePlace& where, const char* format, ...) {
    if (isDropped(level)) {
        return;
    }
    // Callers report first and then tell reasons apart by errno: a full disk, too few handles.
    const int savedErrno = errno;
    va_list arguments;
    va_start(arguments, format);
    const std::string message = atPlace(where, formatText(format, arguments));
    va_end(arguments);
    writeFile(level, message);
    writeConsole(level, message);
    errno = savedErrno;
}

void logConsoleFirst(LogLevel level, const CodePlace& where, const char* format, ...) {
    if (isDropped(level)) {
        return;
    }
    const int savedErrno = errno;
    va_list arguments;
    va_start(arguments, format);
    const std::string message = atPlace(where, formatText(format, arguments));
    va_end(arguments);
    writeConsole(level, message);
    writeFile(level, message);
    errno = savedErrno;
}

void reportErrorsToStderr() {
    g_toStderr = true;
    g_errorsOnly = true;
}

void reportAllToStderr() {
    g_toStderr = true;
}

void discardReports() {
    g_discarding = true;
}

} // namespace kestrine
