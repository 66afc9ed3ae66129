// Reports: each goes to the day's log file and to the console.
//
//   LOG_ERROR("open %s fail", path.c_str());
//
// writes to log/kestrine/kestrineYYYYMMDD.txt of the installation (frame/install_root.h)
//   " e 14: 5: 3 UrlFile::open 81 open D:/x fail"
// and to the console
//   "E:UrlFile::open 81 open D:/x fail"
// The function's qualified name and the line come from the compiler.
//
// A line that cannot be written is dropped silently; logging never fails its caller.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

// MinGW's printf family has two dialects; the compiler knows which one is in force.
#ifdef __MINGW_PRINTF_FORMAT
#define KESTRINE_PRINTF_DIALECT __MINGW_PRINTF_FORMAT
#else
#define KESTRINE_PRINTF_DIALECT printf
#endif
#define KESTRINE_PRINTF(formatIndex, firstArgument)                                                \
    __attribute__((format(KESTRINE_PRINTF_DIALECT, formatIndex, firstArgument)))

namespace kestrine {

enum class LogLevel : int32_t { Info = 0, Warning = 1, Error = 2, Debug = 3 };

// Appends lines to one text file per calendar day and keeps the newest 30 of them.
class CRealTimeLog {
public:
    CRealTimeLog() = default;
    virtual ~CRealTimeLog() = default;
    CRealTimeLog(const CRealTimeLog&) = delete;
    CRealTimeLog& operator=(const CRealTimeLog&) = delete;

    // Appends one line; the letter is chosen by the level modulo 5. `message` begins with a blank
    // and is cut at 1,023 bytes. Returns 1 when the line was written, 0 when the file could not be
    // opened.
    int write(int32_t level, std::string_view message);

private:
    std::mutex m_openLock;
};

extern CRealTimeLog g_log;

// Where a report is made. The compilers spell `function` differently, each with its full signature.
struct CodePlace {
    const char* function;
    int line;
};

// File line first, console line second. The value of errno is left as it was.
void logMessage(LogLevel level, const CodePlace& where, const char* format, ...)
    KESTRINE_PRINTF(3, 4);
// The other way round, for the signal handler.
void logConsoleFirst(LogLevel level, const CodePlace& where, const char* format, ...)
    KESTRINE_PRINTF(3, 4);

// For programs beside the service: from now on reports of errors go to the standard error stream,
// all others nowhere, and no log file is written. Call before any other thread exists.
void reportErrorsToStderr();
// The same with every line.
void reportAllToStderr();
// For programs that tell in their own words what failed: no report goes anywhere from now on.
void discardReports();

} // namespace kestrine

// The place where it stands.
#define KESTRINE_HERE (::kestrine::CodePlace{__PRETTY_FUNCTION__, __LINE__})

#define LOG_INFO(...) ::kestrine::logMessage(::kestrine::LogLevel::Info, KESTRINE_HERE, __VA_ARGS__)
#define LOG_ERROR(...)                                                                             \
    ::kestrine::logMessage(::kestrine::LogLevel::Error, KESTRINE_HERE, __VA_ARGS__)
#define LOG_DEBUG(...)                                                                             \
    ::kestrine::logMessage(::kestrine::LogLevel::Debug, KESTRINE_HERE, __VA_ARGS__)
// Reports an error and is -1, the result of a failed operation.
#define LOG_FAIL(...) (LOG_ERROR(__VA_ARGS__), -1)
