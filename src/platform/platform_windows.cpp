#include "platform/path_text.h"
#include "platform/system_windows.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace kestrine {

namespace {

thread_local DWORD g_lastError = 0;

struct ErrorPair {
    DWORD code;
    int number;
};

constexpr ErrorPair g_errorPairs[] = {
    {ERROR_FILE_NOT_FOUND, ENOENT},
    {ERROR_PATH_NOT_FOUND, ENOENT},
    {ERROR_INVALID_DRIVE, ENOENT},
    {ERROR_NO_MORE_FILES, ENOENT},
    {ERROR_BAD_NETPATH, ENOENT},
    {ERROR_BAD_NET_NAME, ENOENT},
    {ERROR_ACCESS_DENIED, EACCES},
    {ERROR_SHARING_VIOLATION, EBUSY}, // passes; a denied access does not
    {ERROR_LOCK_VIOLATION, EBUSY},
    {ERROR_CURRENT_DIRECTORY, EACCES},
    {ERROR_WRITE_PROTECT, EROFS},
    {ERROR_FILE_EXISTS, EEXIST},
    {ERROR_ALREADY_EXISTS, EEXIST},
    {ERROR_DIRECTORY, ENOTDIR},
    {ERROR_DIR_NOT_EMPTY, ENOTEMPTY},
    {ERROR_NOT_SAME_DEVICE, EXDEV},
    {ERROR_DISK_FULL, ENOSPC},
    {ERROR_HANDLE_DISK_FULL, ENOSPC},
    {ERROR_TOO_MANY_OPEN_FILES, EMFILE},
    {ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
    {ERROR_OUTOFMEMORY, ENOMEM},
    {ERROR_INVALID_HANDLE, EBADF},
    {ERROR_INVALID_PARAMETER, EINVAL},
    {ERROR_NEGATIVE_SEEK, EINVAL},
    {ERROR_INVALID_NAME, EINVAL},
    {ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG},
    {ERROR_BUFFER_OVERFLOW, ENAMETOOLONG},
    {ERROR_NOT_SUPPORTED, ENOSYS},
};

// Whatever has no counterpart is a device or a file system in trouble.
int errnoOf(DWORD code) {
    const auto* const pair =
        std::find_if(std::begin(g_errorPairs), std::end(g_errorPairs),
                     [&](const ErrorPair& candidate) { return candidate.code == code; });
    return pair != std::end(g_errorPairs) ? pair->number : EIO;
}

// Seconds since 1970 of 100 ns units since 1601.
int64_t unixTime(const FILETIME& time) {
    constexpr int64_t unitsPerSecond = 10'000'000;
    constexpr int64_t secondsTo1970 = 11'644'473'600;
    const int64_t units = (int64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
    return units / unitsPerSecond - secondsTo1970;
}

// In the code page of file names.
std::wstring wide(const std::string& text) {
    std::wstring result(text.size() + 1, L'\0');
    const int length = MultiByteToWideChar(AreFileApisANSI() ? CP_ACP : CP_OEMCP, 0, text.c_str(),
                                           -1, result.data(), static_cast<int>(result.size()));
    result.resize(length > 0 ? static_cast<size_t>(length) - 1 : 0);
    return result;
}

class WindowsPlatform final : public Platform {
public:
    [[nodiscard]] uint32_t lastError() const override { return g_lastError; }

    [[nodiscard]] std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        return openFile(path, mode);
    }

    [[nodiscard]] bool exists(const std::string& path) override {
        if (GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES) {
            return true;
        }
        constexpr std::array<DWORD, 7> notThere = {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,
                                                   ERROR_INVALID_NAME,   ERROR_BAD_PATHNAME,
                                                   ERROR_INVALID_DRIVE,  ERROR_FILENAME_EXCED_RANGE,
                                                   ERROR_DIRECTORY};
        return std::ranges::find(notThere, GetLastError()) == notThere.end();
    }

    [[nodiscard]] int info(const std::string& path, FileInfo& info) override {
        WIN32_FILE_ATTRIBUTE_DATA data;
        if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) {
            return fail();
        }
        info.isDirectory = hasAttribute(data.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY);
        info.size = info.isDirectory ? 0 : (int64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow;
        info.modified = unixTime(data.ftLastWriteTime);
        return 0;
    }

    [[nodiscard]] int removeFile(const std::string& path) override { return deleteFile(path); }

    [[nodiscard]] int rename(const std::string& from, const std::string& to) override {
        return renamePath(from, to);
    }

    [[nodiscard]] int makeDirectory(const std::string& path) override {
        // A name whose directory was deleted while somebody had it open is refused for a moment.
        const bool made = tryWhileHeld([&] { return CreateDirectoryA(path.c_str(), nullptr); },
                                       [&] { return !isBeingDeleted(path); });
        return made ? 0 : fail();
    }

    [[nodiscard]] int removeDirectory(const std::string& path) override {
        const bool removed = tryWhileHeld([&] { return RemoveDirectoryA(path.c_str()); },
                                          [&] {
                                              return !hasAttribute(GetFileAttributesA(path.c_str()),
                                                                   FILE_ATTRIBUTE_DIRECTORY);
                                          });
        return removed ? 0 : fail();
    }

    // There is nothing to call. The file system logs the changes of its directories in order and
    // writes that log out with every write-through rename and every flushed file, so whatever came
    // before one of these is on disk with it.
    [[nodiscard]] int syncDirectory(const std::string& path) override {
        const DWORD attributes = GetFileAttributesA(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            return fail();
        }
        return hasAttribute(attributes, FILE_ATTRIBUTE_DIRECTORY) ? 0 : fail(ERROR_DIRECTORY);
    }

    [[nodiscard]] int find(const std::string& pattern, std::vector<FindEntry>& entries,
                           FindStep& step) override {
        return findEntries(pattern, entries, step);
    }

    [[nodiscard]] int freeSpace(const std::string& path, uint64_t& bytes) override {
        std::string place = path.empty() ? "." : path;
        ULARGE_INTEGER available;
        // A share is only taken with a separator behind it.
        const auto asDirectory = [&] { return place.back() == '/' ? place : place + '/'; };
        while (!GetDiskFreeSpaceExA(asDirectory().c_str(), &available, nullptr, nullptr)) {
            const int number = errnoOf(GetLastError());
            const bool notThere = number == ENOENT || number == ENOTDIR || number == EINVAL;
            if (!notThere || !cutToParent(place)) {
                return fail();
            }
        }
        bytes = available.QuadPart;
        return 0;
    }

    [[nodiscard]] std::string resolvedPath(const std::string& path) override {
        std::string resolved(32768, '\0');
        const DWORD length = GetFullPathNameA(path.c_str(), static_cast<DWORD>(resolved.size()),
                                              resolved.data(), nullptr);
        if (length == 0 || length >= resolved.size()) {
            fail(length == 0 ? GetLastError() : ERROR_BUFFER_OVERFLOW);
            return {};
        }
        resolved.resize(length);
        std::replace(resolved.begin(), resolved.end(), '\\', '/');
        return resolved;
    }

    [[nodiscard]] bool isVolumeRoot(const std::string& path) override {
        std::string root(path.size() + 3, '\0');
        if (!GetVolumePathNameA(path.c_str(), root.data(), static_cast<DWORD>(root.size()))) {
            return false;
        }
        root.resize(std::strlen(root.c_str()));
        std::replace(root.begin(), root.end(), '\\', '/');
        const std::string whole = path.ends_with('/') ? path : path + "/";
        return sameFileName(root, whole);
    }

    // The file system drops dots and blanks at the end of a name.
    [[nodiscard]] int compareFileNames(const std::string& a, const std::string& b) const override {
        const auto taken = [](const std::string& name) {
            return wide(name.substr(0, name.find_last_not_of(". ") + 1));
        };
        return CompareStringOrdinal(taken(a).c_str(), -1, taken(b).c_str(), -1, TRUE) - CSTR_EQUAL;
    }

    [[nodiscard]] bool isPlainPath(const std::string& path) const override {
        const size_t colon = path.find(':');
        const bool drive = colon == 1 && path.size() > 2 && (path[2] == '/' || path[2] == '\\');
        return path.find_first_of("%\"") == std::string::npos &&
               (colon == std::string::npos || (drive && path.find(':', 2) == std::string::npos));
    }

    [[nodiscard]] int removeTree(const std::string& command, const std::string& path) override {
        return runRemoveTree(command, path);
    }

    [[nodiscard]] int move(const std::string& command, const std::string& from,
                           const std::string& to) override {
        return runMove(command, from, to);
    }

    [[nodiscard]] int64_t now() override { return std::time(nullptr); }

    [[nodiscard]] LocalTime localTime() override {
        SYSTEMTIME local;
        GetLocalTime(&local);
        return {local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond};
    }

    [[nodiscard]] uint32_t tickCount() override { return GetTickCount(); }

    [[nodiscard]] int64_t bootTime() override {
        return now() - static_cast<int64_t>(GetTickCount64() / 1000);
    }

    void sleep(uint32_t milliseconds) override { Sleep(milliseconds); }

    [[nodiscard]] std::string executablePath() override {
        std::string path(32768, '\0');
        const DWORD length =
            GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0 || length == path.size()) {
            fail(length == 0 ? GetLastError() : ERROR_BUFFER_OVERFLOW);
            return {};
        }
        path.resize(length);
        std::replace(path.begin(), path.end(), '\\', '/');
        return path;
    }

    [[nodiscard]] NamedEventResult createNamedEvent(const std::string& name,
                                                    std::unique_ptr<NamedEvent>& event) override {
        return createEvent(name, event);
    }

    [[nodiscard]] LockResult lockFile(const std::string& path,
                                      std::unique_ptr<NamedEvent>& lock) override {
        return lockWholeFile(path, LockKind::Alone, lock);
    }

    [[nodiscard]] LockResult lockFileShared(const std::string& path,
                                            std::unique_ptr<NamedEvent>& lock) override {
        return lockWholeFile(path, LockKind::Shared, lock);
    }

    [[nodiscard]] LockResult lockFileBytes(const std::string& path, uint64_t first, uint64_t count,
                                           std::unique_ptr<NamedEvent>& lock) override {
        return lockBytesOfFile(path, first, count, lock);
    }

    [[nodiscard]] LockResult probeLock(const std::string& path) override {
        return probeFileLock(path, LockKind::Shared);
    }

    [[nodiscard]] LockResult probeSharedLock(const std::string& path) override {
        return probeFileLock(path, LockKind::Alone);
    }

    void prepareConsole() override { stopWaitingForReaders(); }

    [[nodiscard]] int terminalWidth(bool ofError) override { return widthOfTerminal(ofError); }

    void writeConsole(std::string_view text, bool toError) override {
        writeStandardStream(text, toError);
    }

    [[nodiscard]] int installSignalHandler(std::span<const int> signals,
                                           void (*handler)(int)) override {
        return handleSignals(signals, handler);
    }

    [[nodiscard]] int startProgram(const std::string& program,
                                   std::span<const std::string> arguments,
                                   std::unique_ptr<ChildProcess>& child) override {
        return startChild(program, arguments, child);
    }

    [[nodiscard]] uint32_t processorCount() override { return countProcessors(); }
    [[nodiscard]] uint32_t supervisorPatience() override { return patienceOfSupervisor(); }

    [[nodiscard]] int tellSupervisor(Notice notice, const std::string& status) override {
        return notifySupervisor(notice, status);
    }
};

} // namespace

int fail(DWORD code) {
    g_lastError = code;
    errno = errnoOf(code);
    return -1;
}

Platform& systemPlatform() {
    // Never destroyed: a signal may be logged while the process's statics go.
    static Platform* const instance = std::make_unique<WindowsPlatform>().release();
    return *instance;
}

} // namespace kestrine
