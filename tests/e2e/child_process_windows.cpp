#include "child_process.h"

#include <system_error>

#include <windows.h>

namespace kestrine::test {

namespace {

constexpr UINT g_killed = 1000;

void sure(const char* call, bool good) {
    if (!good) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), call);
    }
}

struct CloseIt {
    void operator()(void* handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseIt>;

// Ends its processes when the last handle goes, with the test program at the latest.
Handle makeJob() {
    Handle job(CreateJobObjectA(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    sure("job", job && SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation,
                                               &limits, sizeof limits));
    return job;
}

BOOL WINAPI ignoreEvent(DWORD) {
    return TRUE;
}

class WindowsChild final : public ChildProcess {
public:
    // `line` is the command line.
    WindowsChild(const std::string& program, std::string line, const std::string& directory) {
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        HANDLE readEnd = nullptr;
        HANDLE writeEnd = nullptr;
        sure("CreatePipe", CreatePipe(&readEnd, &writeEnd, &inherited, 0));
        m_output.reset(readEnd);
        const Handle output(writeEnd);
        SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = startup.hStdError = writeEnd;
        PROCESS_INFORMATION started{};
        // A console of its own, so that a console event reaches no other process.
        sure("CreateProcess", CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                                             CREATE_NO_WINDOW | CREATE_SUSPENDED, nullptr,
                                             directory.c_str(), &startup, &started));
        m_process.reset(started.hProcess);
        m_id = started.dwProcessId;
        const Handle thread(started.hThread);
        if (!AssignProcessToJobObject(m_job.get(), started.hProcess)) {
            TerminateProcess(started.hProcess, g_killed);
            sure("AssignProcessToJobObject", false);
        }
        ResumeThread(started.hThread);
    }
    ~WindowsChild() override { TerminateJobObject(m_job.get(), g_killed); }
    size_t read(std::span<char> buffer) override {
        DWORD size = 0;
        sure("ReadFile", ReadFile(m_output.get(), buffer.data(), static_cast<DWORD>(buffer.size()),
                                  &size, nullptr) ||
                             GetLastError() == ERROR_BROKEN_PIPE);
        return size;
    }
    // Only processes that share a console can send each other its events. A process that just
    // started may have none yet.
    void request(StopRequest) override {
        SetConsoleCtrlHandler(ignoreEvent, TRUE);
        FreeConsole();
        for (int tries = 0; !AttachConsole(m_id); ++tries) {
            sure("AttachConsole", tries < 50);
            if (WaitForSingleObject(m_process.get(), 100) == WAIT_OBJECT_0) {
                return;
            }
        }
        sure("GenerateConsoleCtrlEvent", GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
        FreeConsole();
    }
    // Commands that the program runs go with it: one that is just starting would wait for ever.
    void kill() override { TerminateJobObject(m_job.get(), g_killed); }
    int wait() override {
        DWORD code = 0;
        sure("wait", WaitForSingleObject(m_process.get(), INFINITE) == WAIT_OBJECT_0 &&
                         GetExitCodeProcess(m_process.get(), &code));
        return static_cast<int>(code);
    }

private:
    Handle m_job = makeJob();
    Handle m_output;
    Handle m_process;
    DWORD m_id = 0;
};

} // namespace

// Arguments of tests hold no quotation marks.
std::unique_ptr<ChildProcess> ChildProcess::start(const std::string& program,
                                                  const std::vector<std::string>& arguments,
                                                  const std::string& directory) {
    std::string line = "\"" + program + "\"";
    for (const std::string& argument : arguments) {
        line += " \"" + argument + "\"";
    }
    return std::make_unique<WindowsChild>(program, std::move(line), directory);
}

// A console can be closed by its user and by the system, not by a program without a window.
bool ChildProcess::canRequest(StopRequest request) {
    return request == StopRequest::Interrupt;
}

} // namespace kestrine::test
