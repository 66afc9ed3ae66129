// What the files of the Windows implementation share.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include "platform/platform.h"

namespace kestrine {

// Keeps the code as this thread's system error code and sets `errno` to match; returns -1.
int fail(DWORD code = GetLastError());

[[nodiscard]] inline bool hasAttribute(DWORD attributes, DWORD bit) {
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & bit) != 0;
}

// Virus scanners and indexers open fresh files for moments. Tries `attempt` (true: it succeeded)
// and, as long as the system says that somebody has the file, up to ten times more with a rising
// delay, 1,375 ms in all. `isHopeless` tells whether a denied access has a reason that waiting does
// not cure. On failure the system error code is that of the last attempt.
template <typename Attempt, typename IsHopeless>
[[nodiscard]] bool tryWhileHeld(Attempt attempt, IsHopeless isHopeless) {
    constexpr DWORD delayStep = 25;
    constexpr DWORD longestDelay = 250;
    for (DWORD delay = delayStep; !attempt(); delay += delayStep) {
        const DWORD code = GetLastError();
        const bool isHeld = code == ERROR_SHARING_VIOLATION || code == ERROR_LOCK_VIOLATION ||
                            (code == ERROR_ACCESS_DENIED && !isHopeless());
        if (!isHeld || delay > longestDelay) {
            SetLastError(code);
            return false;
        }
        Sleep(delay);
    }
    return true;
}

// True for a directory and for a file that is marked read-only, which nobody may write or delete,
// and where nothing is, so that it is the directory that refuses.
[[nodiscard]] inline bool refusesChange(const std::string& path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes == INVALID_FILE_ATTRIBUTES
               ? GetLastError() == ERROR_FILE_NOT_FOUND
               : hasAttribute(attributes, FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY);
}

// True when somebody still has open what was deleted: not even its attributes can be read.
[[nodiscard]] inline bool isBeingDeleted(const std::string& path) {
    return GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES &&
           GetLastError() == ERROR_ACCESS_DENIED;
}

// A name or a lock that is held until the handle is closed.
[[nodiscard]] std::unique_ptr<NamedEvent> holdHandle(HANDLE handle);

[[nodiscard]] std::unique_ptr<File> openFile(const std::string& path, OpenMode mode);

[[nodiscard]] int findEntries(const std::string& pattern, std::vector<FindEntry>& entries,
                              FindStep& step);
[[nodiscard]] int deleteFile(const std::string& path);
[[nodiscard]] int renamePath(const std::string& from, const std::string& to);
[[nodiscard]] int runRemoveTree(const std::string& command, const std::string& path);
// Replaces an existing target file.
[[nodiscard]] int runMove(const std::string& command, const std::string& from,
                          const std::string& to);

[[nodiscard]] NamedEventResult createEvent(const std::string& name,
                                           std::unique_ptr<NamedEvent>& event);
enum class LockKind { Alone, Shared };
[[nodiscard]] LockResult lockWholeFile(const std::string& path, LockKind kind,
                                       std::unique_ptr<NamedEvent>& lock);
[[nodiscard]] LockResult lockBytesOfFile(const std::string& path, uint64_t first, uint64_t count,
                                         std::unique_ptr<NamedEvent>& lock);
// Whether a lock of the kind would be had.
[[nodiscard]] LockResult probeFileLock(const std::string& path, LockKind kind);
void stopWaitingForReaders();
[[nodiscard]] int widthOfTerminal(bool ofError);
void writeStandardStream(std::string_view text, bool toError);
[[nodiscard]] int handleSignals(std::span<const int> signals, void (*handler)(int));
// Calls the handler with signal 15, on a thread of the system's, when the parent asks for a stop.
[[nodiscard]] int watchStopRequests(void (*handler)(int));
[[nodiscard]] int startChild(const std::string& program, std::span<const std::string> arguments,
                             std::unique_ptr<ChildProcess>& child);
[[nodiscard]] uint32_t countProcessors();
// Calls the handler that stands with signal 15.
void requestStop();
// Whether the service manager has started this process.
[[nodiscard]] bool isManaged();
[[nodiscard]] uint32_t patienceOfSupervisor();
[[nodiscard]] int notifySupervisor(Notice notice, const std::string& status);

} // namespace kestrine
