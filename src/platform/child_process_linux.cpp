// Starting a program:
//
//  1. Two pipes: one for what it prints, and one that brings back why it could not be started.
//  2. The child asks to be killed with its parent, before it looks whether that is gone already.
//  3. It lets signals through again, which the parent leaves to a thread of its own.
//  4. It takes the program's place, which closes the second pipe; otherwise it writes the error.
#include "platform/child_process.h"
#include "platform/system_linux.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

namespace kestrine {

namespace {

class LinuxChild final : public ChildProcess {
public:
    LinuxChild(pid_t process, Descriptor output)
        : m_process(process), m_output(std::move(output)) {}
    ~LinuxChild() override {
        if (m_process > 0) {
            ::kill(m_process, SIGKILL);
            int status = 0;
            while (::waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
            }
        }
    }

    [[nodiscard]] int poll(ChildEnd& end) override;
    void takeOutput(std::string& text) override;
    [[nodiscard]] int askToStop() override {
        return m_process <= 0 || ::kill(m_process, SIGTERM) == 0 ? 0 : fail();
    }

private:
    pid_t m_process; // 0: it has ended, and the number may be another's
    ChildEnd m_end;
    Descriptor m_output;
};

int LinuxChild::poll(ChildEnd& end) {
    if (m_process > 0) {
        int status = 0;
        pid_t ended = 0;
        do {
            ended = ::waitpid(m_process, &status, WNOHANG);
        } while (ended < 0 && errno == EINTR);
        if (ended <= 0) {
            return ended == 0 ? 0 : fail();
        }
        m_process = 0;
        m_end.killed = WIFSIGNALED(status);
        m_end.code = m_end.killed ? WTERMSIG(status) : WEXITSTATUS(status);
    }
    end = m_end;
    return 1;
}

void LinuxChild::takeOutput(std::string& text) {
    std::array<char, 4096> part{};
    for (;;) {
        const auto got = ::read(m_output.get(), part.data(), part.size());
        if (got > 0) {
            text.append(part.data(), static_cast<size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            return;
        }
    }
}

// Above the standard streams, whose numbers are free when this program was started without them.
int aboveStandardStreams(int descriptor) {
    const Descriptor low(descriptor);
    return ::fcntl(low.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

bool makePipe(int& readEnd, int& writeEnd) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    readEnd = aboveStandardStreams(ends[0]);
    writeEnd = aboveStandardStreams(ends[1]);
    return readEnd >= 0 && writeEnd >= 0;
}

// What the child needs, made before it is there: it may make nothing any more, since another thread
// of the parent may have held any lock.
struct Start {
    const char* program;
    char* const* arguments;
    pid_t parent;
    int input;
    int output;
    int error; // takes the error number of a failed start
};

[[noreturn]] void becomeProgram(const Start& start) {
    sigset_t none;
    sigemptyset(&none);
    const bool ready =
        ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && ::dup2(start.input, STDIN_FILENO) >= 0 &&
        ::dup2(start.output, STDOUT_FILENO) >= 0 && ::dup2(start.output, STDERR_FILENO) >= 0;
    if (ready && ::getppid() == start.parent) {
        std::signal(SIGPIPE, SIG_DFL);
        ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
        ::execv(start.program, start.arguments);
    }
    const int error = errno;
    [[maybe_unused]] const auto written = ::write(start.error, &error, sizeof error);
    ::_exit(127);
}

// The error number that a child could not start with, 0 when it has started.
int errorOfStart(const Descriptor& pipe) {
    int error = 0;
    ssize_t got = 0;
    do {
        got = ::read(pipe.get(), &error, sizeof error);
    } while (got < 0 && errno == EINTR);
    return got == sizeof error ? error : 0;
}

} // namespace

int startChild(const std::string& program, std::span<const std::string> arguments,
               std::unique_ptr<ChildProcess>& child) {
    int ends[4] = {-1, -1, -1, -1};
    const bool piped = makePipe(ends[0], ends[1]) && makePipe(ends[2], ends[3]);
    Descriptor output(ends[0]);
    Descriptor outputOfChild(ends[1]);
    Descriptor error(ends[2]);
    Descriptor errorOfChild(ends[3]);
    const Descriptor nothing(aboveStandardStreams(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    if (!piped || nothing.get() < 0 || ::fcntl(output.get(), F_SETFL, O_NONBLOCK) != 0) {
        return fail();
    }
    std::vector<std::string> texts(arguments.begin(), arguments.end());
    texts.insert(texts.begin(), program);
    std::vector<char*> words;
    words.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        words.push_back(text.data());
    }
    words.push_back(nullptr);
    const Start start{program.c_str(), words.data(),        ::getpid(),
                      nothing.get(),   outputOfChild.get(), errorOfChild.get()};
    const pid_t process = ::fork();
    if (process == 0) {
        becomeProgram(start);
    }
    if (process < 0) {
        return fail();
    }
    child = std::make_unique<LinuxChild>(process, std::move(output));
    (void)errorOfChild.close();
    if (const int code = errorOfStart(error); code != 0) {
        child.reset();
        return fail(code);
    }
    return 0;
}

uint32_t countProcessors() {
    // Those that this process may run on; a machine may have more than fit the usual set.
    for (size_t room = 1024; room <= 1 << 20; room *= 2) {
        const size_t size = CPU_ALLOC_SIZE(room);
        std::vector<uint8_t> bytes(size);
        void* const generic = bytes.data();
        auto* const set = static_cast<cpu_set_t*>(generic);
        if (::sched_getaffinity(0, size, set) == 0) {
            return static_cast<uint32_t>(std::max(1, CPU_COUNT_S(size, set)));
        }
    }
    return 1;
}

} // namespace kestrine
