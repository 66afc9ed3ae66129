// The single-instance name, the console and the signals.
#include "platform/closed_pipe.h"
#include "platform/system_windows.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>

namespace kestrine {

namespace {

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
    event = holdHandle(handle);
    if (code == ERROR_ALREADY_EXISTS) {
        fail(code);
        return NamedEventResult::AlreadyExists;
    }
    return NamedEventResult::Created;
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
    // A service is told of the end of every session, and of the system's in another way.
    return isManaged() || SetConsoleCtrlHandler(onConsoleEvent, TRUE) ? watchStopRequests(handler)
                                                                      : fail();
}

void requestStop() {
    if (g_handler != nullptr) {
        g_handler(SIGTERM);
    }
}

// The C library has no number of its own for ERROR_NO_DATA, "the pipe is being closed".
bool isClosedPipe(int error) {
    return error == EPIPE || error == EINVAL;
}

} // namespace kestrine
