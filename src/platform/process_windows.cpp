// The single-instance name, the lock file and the signals.
#include "platform/system_windows.h"

#include <csignal>
#include <utility>

namespace kestrine {

namespace {

class EventHandle final : public NamedEvent {
public:
    explicit EventHandle(HANDLE handle) : m_handle(handle) {}
    ~EventHandle() override {
        if (m_handle != nullptr) {
            CloseHandle(m_handle);
        }
    }
    EventHandle(const EventHandle&) = delete;
    EventHandle& operator=(const EventHandle&) = delete;

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
    SetLastError(ERROR_SUCCESS);
    const HANDLE handle = CreateEventA(&attributes, manualReset, signalled, name.c_str());
    if (handle == nullptr) {
        return failEvent(NamedEventResult::CreateFailed);
    }
    const DWORD code = GetLastError();
    event = std::make_unique<EventHandle>(handle);
    if (code == ERROR_ALREADY_EXISTS) {
        fail(code);
        return NamedEventResult::AlreadyExists;
    }
    return NamedEventResult::Created;
}

// Open without sharing: nobody else can open it until the process ends.
LockResult lockWholeFile(const std::string& path, std::unique_ptr<NamedEvent>& lock) {
    const HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const bool held = GetLastError() == ERROR_SHARING_VIOLATION;
        fail();
        return held ? LockResult::HeldByAnother : LockResult::Failed;
    }
    lock = std::make_unique<EventHandle>(handle);
    return LockResult::Locked;
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
    return SetConsoleCtrlHandler(onConsoleEvent, TRUE) ? 0 : fail();
}

} // namespace kestrine
