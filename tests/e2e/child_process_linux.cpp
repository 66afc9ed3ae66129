#include "child_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <optional>
#include <system_error>

namespace kestrine::test {

namespace {

constexpr int g_endedBySignal = 1000;

// The result of a call that did not fail. No handler interrupts one.
template <typename Result>
Result sure(const char* call, Result result) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
    return result;
}

// Between fork and exec only system calls are allowed.
[[noreturn]] void becomeProgram(char* const* arguments, const char* directory, int output) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::chdir(directory) == 0 && ::dup2(output, STDOUT_FILENO) >= 0 &&
        ::dup2(output, STDERR_FILENO) >= 0) {
        ::execv(arguments[0], arguments);
    }
    ::_exit(127);
}

class LinuxChild final : public ChildProcess {
public:
    LinuxChild(std::vector<std::string> arguments, const std::string& directory) {
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        int ends[2];
        sure("pipe2", ::pipe2(ends, O_CLOEXEC));
        m_pid = sure("fork", ::fork());
        if (m_pid == 0) {
            becomeProgram(pointers.data(), directory.c_str(), ends[1]);
        }
        m_output = ends[0];
        ::close(ends[1]);
    }
    ~LinuxChild() override {
        LinuxChild::kill();
        LinuxChild::wait();
        ::close(m_output);
    }
    size_t read(std::span<char> buffer) override {
        return static_cast<size_t>(sure("read", ::read(m_output, buffer.data(), buffer.size())));
    }
    void request(StopRequest request) override { signal(static_cast<int>(request)); }
    void kill() override { signal(SIGKILL); }
    int wait() override {
        if (int status = 0; !m_status) {
            sure("waitpid", ::waitpid(m_pid, &status, 0));
            m_status = status;
        }
        return WIFEXITED(*m_status) ? static_cast<int8_t>(WEXITSTATUS(*m_status))
                                    : g_endedBySignal + WTERMSIG(*m_status);
    }

private:
    void signal(int number) {
        if (!m_status) {
            sure("kill", ::kill(m_pid, number));
        }
    }

    pid_t m_pid = -1;
    int m_output = -1;
    std::optional<int> m_status; // as waitpid gave it
};

} // namespace

std::unique_ptr<ChildProcess> ChildProcess::start(const std::string& program,
                                                  const std::vector<std::string>& arguments,
                                                  const std::string& directory) {
    std::vector<std::string> all = {program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return std::make_unique<LinuxChild>(std::move(all), directory);
}

bool ChildProcess::canRequest(StopRequest) {
    return true;
}

} // namespace kestrine::test
