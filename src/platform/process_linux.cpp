// The single-instance name, the lock file, the console and the signals.
#include "platform/closed_pipe.h"
#include "platform/system_linux.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <thread>

namespace kestrine {

namespace {

// Holds a name by its socket or a lock by its file, or nothing when it is another process's.
class HeldName final : public NamedEvent {
public:
    explicit HeldName(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}
    [[nodiscard]] int close() override { return m_descriptor.close(); }

private:
    Descriptor m_descriptor;
};

} // namespace

// A socket name that begins with a zero byte lives in no file system: the kernel takes it back with
// the last descriptor, however the process ends.
NamedEventResult bindName(const std::string& name, std::unique_ptr<NamedEvent>& event) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof(address.sun_path)) {
        fail(ENAMETOOLONG);
        return NamedEventResult::CreateFailed;
    }
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());

    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 0) {
        fail();
        return NamedEventResult::CreateFailed;
    }
    const void* const generic = &address;
    if (::bind(socket.get(), static_cast<const sockaddr*>(generic), length) != 0) {
        fail();
        if (errno != EADDRINUSE) {
            return NamedEventResult::CreateFailed;
        }
        // Callers get a handle in this case, too; closing this one does nothing.
        event = std::make_unique<HeldName>(Descriptor(-1));
        return NamedEventResult::AlreadyExists;
    }
    event = std::make_unique<HeldName>(std::move(socket));
    return NamedEventResult::Created;
}

namespace {

// Whether the path still names the open file: another process may have removed it, with its lock.
bool isNamedBy(int file, const std::string& path) {
    struct stat open {};
    struct stat named {};
    return ::fstat(file, &open) == 0 && ::stat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

int lockOpenFile(int file, int kind) {
    int result = 0;
    do {
        result = ::flock(file, kind | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result;
}

// Who only looks at the lock has it for less than a moment.
int lockBetweenLooks(int file) {
    int tries = g_lockTries;
    int result = lockOpenFile(file, LOCK_EX);
    for (; result != 0 && errno == EWOULDBLOCK && tries > 0; --tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(g_lockPause));
        result = lockOpenFile(file, LOCK_EX);
    }
    return result;
}

LockResult lockFailure() {
    if (errno == EWOULDBLOCK) {
        return LockResult::HeldByAnother;
    }
    return errno == ENOLCK || errno == ENOTSUP || errno == EINVAL ? LockResult::NotSupported
                                                                  : LockResult::Failed;
}

} // namespace

// A lock of the open file, which the kernel takes back with its last descriptor.
LockResult lockWholeFile(const std::string& path, std::unique_ptr<NamedEvent>& lock) {
    constexpr int tries = 10; // then the file system has no lasting identities
    for (int i = 1;; ++i) {
        Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
        if (file.get() < 0) {
            fail();
            return LockResult::Failed;
        }
        if (lockBetweenLooks(file.get()) != 0) {
            fail();
            return lockFailure();
        }
        if (i == tries || isNamedBy(file.get(), path)) {
            lock = std::make_unique<HeldName>(std::move(file));
            return LockResult::Locked;
        }
    }
}

// The kernel lists such locks, but not those of other containers and machines, and not under the
// numbers that every file system shows. So the lock is taken, shared, which no other look minds,
// and let go with the descriptor; `lockBetweenLooks` sees to it that no service minds either.
LockResult probeFileLock(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        fail();
        return errno == ENOENT ? LockResult::Locked : LockResult::Failed;
    }
    if (lockOpenFile(file.get(), LOCK_SH) != 0) {
        fail();
        return lockFailure();
    }
    return LockResult::Locked;
}

void ignoreBrokenPipes() {
    // A write without a reader then fails, which costs a line and not the process.
    std::signal(SIGPIPE, SIG_IGN);
}

namespace {

constexpr int g_consolePatience = 500; // ms for a reader of the output to take something

// Whether the descriptor takes a line now. A reader that has taken nothing for a while is not
// waited for again until it has.
bool takesText(int descriptor) {
    static std::atomic<bool> g_stuck{false};
    pollfd wanted{descriptor, POLLOUT, 0};
    const int ready = ::poll(&wanted, 1, g_stuck ? 0 : g_consolePatience);
    g_stuck = ready == 0;
    return ready != 0; // also when it cannot be told
}

} // namespace

int widthOfTerminal(bool ofError) {
    const int stream = ofError ? STDERR_FILENO : STDOUT_FILENO;
    constexpr int usual = 80; // of a terminal that does not tell
    winsize size{};
    if (isatty(stream) == 0) {
        return 0;
    }
    return ioctl(stream, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

void writeStandardStream(std::string_view text, bool toError) {
    const int descriptor = toError ? STDERR_FILENO : STDOUT_FILENO;
    while (!text.empty() && takesText(descriptor)) {
        // A pipe that is ready takes this much at once.
        const auto put = ::write(descriptor, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
        if (put > 0) {
            text.remove_prefix(static_cast<size_t>(put));
        } else if (errno != EINTR && errno != EAGAIN) {
            return;
        }
    }
}

namespace {

// Only this thread lets the signal through again, so it must never end.
void giveDefaultAction(int number) {
    std::signal(number, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, number);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
}

void waitForSignals(sigset_t waited, void (*handler)(int)) {
    for (;;) { // with every signal used up, `sigwait` waits for nothing at all
        int number = 0;
        if (sigwait(&waited, &number) == 0) {
            sigdelset(&waited, number);
            giveDefaultAction(number);
            // After the default action is back, so that a second signal ends a service that does
            // not stop.
            handler(number == SIGHUP ? SIGTERM : number);
        }
    }
}

} // namespace

int startSignalThread(std::span<const int> signals, void (*handler)(int)) {
    sigset_t waited;
    sigemptyset(&waited);
    for (const int number : signals) {
        if (sigaddset(&waited, number) != 0) {
            return fail();
        }
    }
    struct sigaction hangUp {};
    if (::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) {
        sigaddset(&waited, SIGHUP); // unless the service was started to outlive its terminal
    }
    // Every later thread inherits the mask.
    if (const int error = pthread_sigmask(SIG_BLOCK, &waited, nullptr); error != 0) {
        return fail(error);
    }
    try {
        std::thread(waitForSignals, waited, handler).detach();
    } catch (const std::system_error& error) {
        // Nobody would take the signals: they must end the process again.
        pthread_sigmask(SIG_UNBLOCK, &waited, nullptr);
        return fail(error.code().value());
    }
    return 0;
}

bool isClosedPipe(int error) {
    return error == EPIPE;
}

} // namespace kestrine
