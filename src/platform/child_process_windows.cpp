// Starting a program:
//
//  1. A pipe for what it prints, of which the program inherits one end.
//  2. The program is made, but does not run yet.
//  3. It gets a job, which the system ends with its last handle, so with this process.
//  4. The event of its stop request is made, so that none is made too early.
//  5. It runs.
#include "platform/child_process.h"
#include "platform/command_line.h"
#include "platform/system_windows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <csignal>
#include <utility>

namespace kestrine {

namespace {

class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    ~Handle() { close(); }
    Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    [[nodiscard]] HANDLE get() const { return m_handle; }
    [[nodiscard]] bool valid() const {
        return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE;
    }
    [[nodiscard]] HANDLE release() { return std::exchange(m_handle, nullptr); }
    void close() {
        if (valid()) {
            CloseHandle(std::exchange(m_handle, nullptr));
        }
    }

private:
    HANDLE m_handle = nullptr;
};

constexpr UINT g_codeOfKilled = 0xC000013A; // as of a program that a Ctrl-C has ended

// The parent sets it, the program waits for it.
Handle stopEvent(DWORD process) {
    constexpr BOOL manualReset = TRUE;
    constexpr BOOL signalled = FALSE;
    const std::string name = "Local\\KestrineStop_" + std::to_string(process);
    return Handle(CreateEventA(nullptr, manualReset, signalled, name.c_str()));
}

class WindowsChild final : public ChildProcess {
public:
    WindowsChild(Handle process, Handle job, Handle stop, Handle output)
        : m_process(std::move(process)), m_job(std::move(job)), m_stop(std::move(stop)),
          m_output(std::move(output)) {}
    ~WindowsChild() override {
        if (WaitForSingleObject(m_process.get(), 0) == WAIT_TIMEOUT) {
            TerminateProcess(m_process.get(), g_codeOfKilled);
            WaitForSingleObject(m_process.get(), INFINITE);
        }
    }
    WindowsChild(const WindowsChild&) = delete;
    WindowsChild& operator=(const WindowsChild&) = delete;

    [[nodiscard]] int poll(ChildEnd& end) override;
    void takeOutput(std::string& text) override;
    [[nodiscard]] int askToStop() override { return SetEvent(m_stop.get()) ? 0 : fail(); }

private:
    Handle m_process;
    Handle m_job;
    Handle m_stop;
    Handle m_output;
};

int WindowsChild::poll(ChildEnd& end) {
    const DWORD waited = WaitForSingleObject(m_process.get(), 0);
    if (waited == WAIT_TIMEOUT) {
        return 0;
    }
    DWORD code = 0;
    if (waited != WAIT_OBJECT_0 || !GetExitCodeProcess(m_process.get(), &code)) {
        return fail();
    }
    // Such codes are those of errors that the program did not handle.
    end.killed = (code >> 28) == 0xC;
    end.code = static_cast<int>(code);
    return 1;
}

void WindowsChild::takeOutput(std::string& text) {
    std::array<char, 4096> part{};
    DWORD waiting = 0;
    while (PeekNamedPipe(m_output.get(), nullptr, 0, nullptr, &waiting, nullptr) && waiting > 0) {
        const DWORD wanted = std::min(waiting, static_cast<DWORD>(part.size()));
        DWORD got = 0;
        if (!ReadFile(m_output.get(), part.data(), wanted, &got, nullptr) || got == 0) {
            return;
        }
        // Lines end as they do elsewhere.
        std::remove_copy(part.data(), part.data() + got, std::back_inserter(text), '\r');
    }
}

Handle makeJob() {
    Handle job(CreateJobObjectA(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    const bool limited =
        job.valid() && SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation,
                                               &limits, sizeof limits);
    return limited ? std::move(job) : Handle();
}

// Only the program's ends may be inherited.
bool makePipe(Handle& readEnd, Handle& writeEnd) {
    constexpr DWORD size = 65536;
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE ends[2] = {};
    if (!CreatePipe(&ends[0], &ends[1], &inherited, size)) {
        return false;
    }
    readEnd = Handle(ends[0]);
    writeEnd = Handle(ends[1]);
    return SetHandleInformation(ends[0], HANDLE_FLAG_INHERIT, 0);
}

Handle openNothing() {
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    return Handle(CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                              OPEN_EXISTING, 0, nullptr));
}

} // namespace

int startChild(const std::string& program, std::span<const std::string> arguments,
               std::unique_ptr<ChildProcess>& child) {
    Handle output;
    Handle outputOfChild;
    const Handle nothing = openNothing();
    Handle job = makeJob();
    if (!job.valid() || !nothing.valid() || !makePipe(output, outputOfChild)) {
        return fail();
    }
    STARTUPINFOA start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = nothing.get();
    start.hStdOutput = outputOfChild.get();
    start.hStdError = outputOfChild.get();
    std::string line = commandLine(program, arguments);
    PROCESS_INFORMATION made{};
    if (!CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED,
                        nullptr, nullptr, &start, &made)) {
        return fail();
    }
    const Handle thread(made.hThread);
    Handle stop = stopEvent(made.dwProcessId);
    const bool stoppable = stop.valid();
    const HANDLE jobOfChild = job.get();
    child = std::make_unique<WindowsChild>(Handle(made.hProcess), std::move(job), std::move(stop),
                                           std::move(output));
    if (!stoppable || !AssignProcessToJobObject(jobOfChild, made.hProcess) ||
        ResumeThread(thread.get()) == static_cast<DWORD>(-1)) {
        const DWORD code = GetLastError();
        child.reset();
        return fail(code);
    }
    return 0;
}

uint32_t countProcessors() {
    DWORD_PTR mine = 0;
    DWORD_PTR all = 0;
    if (!GetProcessAffinityMask(GetCurrentProcess(), &mine, &all) || mine == 0) {
        return std::max<DWORD>(1, GetActiveProcessorCount(ALL_PROCESSOR_GROUPS));
    }
    return static_cast<uint32_t>(std::popcount(mine));
}

namespace {

void (*g_stopHandler)(int) = nullptr;

void CALLBACK onStopRequest(void*, BOOLEAN) {
    g_stopHandler(SIGTERM);
}

} // namespace

int watchStopRequests(void (*handler)(int)) {
    // Never closed: what waits for it would take its end for a request.
    const HANDLE event = stopEvent(GetCurrentProcessId()).release();
    HANDLE wait = nullptr;
    g_stopHandler = handler;
    return event != nullptr && RegisterWaitForSingleObject(&wait, event, onStopRequest, nullptr,
                                                           INFINITE, WT_EXECUTEONLYONCE)
               ? 0
               : fail();
}

} // namespace kestrine
