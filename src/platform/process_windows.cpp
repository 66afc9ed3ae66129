// The single-instance name, the lock file and the signals.
#include "platform/system_windows.h"

#include <atomic>
#include <csignal>
#include <string>
#include <utility>

namespace kestrine {

namespace {

class OwnedHandle final : public NamedEvent {
public:
    explicit OwnedHandle(HANDLE handle) : m_handle(handle) {}
    ~OwnedHandle() override {
        if (m_handle != nullptr) {
            CloseHandle(m_handle);
        }
    }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    [[nodiscard]] int close() override {
        return m_handle == nullptr || CloseHandle(std::exchange(m_handle, nullptr)) ? 0 : fail();
    }

private:
    HANDLE m_handle;
};

NamedEventResult failEvent(NamedEventResult result) {
    fail();
    return result;
}

} // namespace

NamedEventResult createEvent(const std::string& name, std::unique_ptr<NamedEvent>& event) {
    SECURITY_DESCRIPTOR descriptor;
    if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)) {
        return failEvent(NamedEventResult::InitializeDescriptorFailed);
    }
    // Present but empty: processes of every user and session may open the event.
    if (!SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) {
        return failEvent(NamedEventResult::SetDaclFailed);
    }
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), &descriptor, FALSE};
    constexpr BOOL manualReset = TRUE;
    constexpr BOOL signalled = FALSE;
    // The call succeeds also for a name that is taken; only this code tells.
    SetLastError(ERROR_SUCCESS);
    const HANDLE handle = CreateEventA(&attributes, manualReset, signalled, name.c_str());
    if (handle == nullptr) {
        return failEvent(NamedEventResult::CreateFailed);
    }
    const DWORD code = GetLastError();
    event = std::make_unique<OwnedHandle>(handle);
    if (code == ERROR_ALREADY_EXISTS) {
        fail(code);
        return NamedEventResult::AlreadyExists;
    }
    return NamedEventResult::Created;
}

namespace {

// Of a byte that no file has: far behind the end, so that the lock keeps nobody from reading.
OVERLAPPED placeOfLock() {
    OVERLAPPED place{};
    place.OffsetHigh = 0x7FFFFFFF;
    return place;
}

LockResult lockOpenFile(HANDLE handle, DWORD kind) {
    OVERLAPPED place = placeOfLock();
    if (LockFileEx(handle, kind | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place)) {
        return LockResult::Locked;
    }
    const DWORD code = GetLastError();
    fail(code);
    if (code == ERROR_LOCK_VIOLATION || code == ERROR_IO_PENDING) {
        return LockResult::HeldByAnother;
    }
    return code == ERROR_NOT_SUPPORTED || code == ERROR_INVALID_FUNCTION ? LockResult::NotSupported
                                                                         : LockResult::Failed;
}

} // namespace

// The system takes the lock back with the last handle.
LockResult lockWholeFile(const std::string& path, std::unique_ptr<NamedEvent>& lock) {
    HANDLE handle = INVALID_HANDLE_VALUE;
    const auto open = [&] {
        handle = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        return handle != INVALID_HANDLE_VALUE;
    };
    if (!tryWhileHeld(open, [&] { return !isBeingDeleted(path); })) {
        fail();
        return LockResult::Failed;
    }
    auto file = std::make_unique<OwnedHandle>(handle);
    LockResult result = lockOpenFile(handle, LOCKFILE_EXCLUSIVE_LOCK);
    // Who only looks at the lock has it for less than a moment.
    for (int tries = g_lockTries; result == LockResult::HeldByAnother && tries > 0; --tries) {
        Sleep(g_lockPause);
        result = lockOpenFile(handle, LOCKFILE_EXCLUSIVE_LOCK);
    }
    if (result == LockResult::Locked) {
        lock = std::move(file);
    }
    return result;
}

// Nothing lists locks, so it is taken, shared, which no other look minds, and let go with the
// handle; `lockWholeFile` tries again, so that no service minds either.
LockResult probeFileLock(const std::string& path) {
    const HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD code = GetLastError();
        fail(code);
        return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ? LockResult::Locked
                                                                            : LockResult::Failed;
    }
    const OwnedHandle file(handle);
    const LockResult result = lockOpenFile(handle, 0);
    if (result == LockResult::Locked) {
        // With the handle it would go at the system's leisure.
        OVERLAPPED place = placeOfLock();
        UnlockFileEx(handle, 0, 1, 0, &place);
    }
    return result;
}

// Writes to a pipe return at once from now on, with less than all written if the pipe is full.
void stopWaitingForReaders() {
    for (const DWORD stream : {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        const HANDLE handle = GetStdHandle(stream);
        DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
        if (GetFileType(handle) == FILE_TYPE_PIPE) {
            SetNamedPipeHandleState(handle, &mode, nullptr, nullptr);
        }
    }
}

int widthOfTerminal(bool ofError) {
    const HANDLE handle = GetStdHandle(ofError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleMode(handle, &mode) || !GetConsoleScreenBufferInfo(handle, &info)) {
        return 0;
    }
    SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    // A line that fills the last column breaks there.
    return info.srWindow.Right - info.srWindow.Left;
}

void writeStandardStream(std::string_view text, bool toError) {
    constexpr DWORD patience = 500; // ms for a reader of the output to take something
    constexpr DWORD step = 10;
    static std::atomic<bool> g_stuck{false}; // not waited for again until it has taken something
    const HANDLE handle = GetStdHandle(toError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
    std::string lines;
    for (const char c : text) {
        lines += c == '\n' ? "\r\n" : std::string(1, c);
    }
    DWORD waited = 0;
    for (size_t done = 0; done < lines.size();) {
        DWORD put = 0;
        if (!WriteFile(handle, lines.data() + done, static_cast<DWORD>(lines.size() - done), &put,
                       nullptr)) {
            return;
        }
        done += put;
        if (put > 0) {
            g_stuck = false;
        } else if (g_stuck || waited >= patience) {
            g_stuck = true;
            return;
        } else {
            Sleep(step);
            waited += step;
        }
    }
}

namespace {

void (*g_handler)(int) = nullptr;

// The runtime gives a signal its default action back before it calls; Wine's does not.
void onSignal(int number) {
    std::signal(number, SIG_DFL);
    g_handler(number);
}

// Ctrl-C and Ctrl-Break are left to the runtime, which maps them to signals.
BOOL WINAPI onConsoleEvent(DWORD event) {
    if (event != CTRL_CLOSE_EVENT && event != CTRL_LOGOFF_EVENT && event != CTRL_SHUTDOWN_EVENT) {
        return FALSE;
    }
    g_handler(SIGTERM);
    // The process is ended as soon as this returns; the main thread has until the system's time
    // limit to come to an orderly end.
    Sleep(INFINITE);
    return TRUE;
}

} // namespace

int handleSignals(std::span<const int> signals, void (*handler)(int)) {
    g_handler = handler;
    for (const int number : signals) {
        if (std::signal(number, onSignal) == SIG_ERR) {
            return fail(ERROR_INVALID_PARAMETER);
        }
    }
    return SetConsoleCtrlHandler(onConsoleEvent, TRUE) ? watchStopRequests(handler) : fail();
}

} // namespace kestrine
