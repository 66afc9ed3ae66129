// The single-instance name, the console and the signals.
#include "platform/system_linux.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <thread>

namespace kestrine {

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
        event = holdDescriptor(Descriptor(-1));
        return NamedEventResult::AlreadyExists;
    }
    event = holdDescriptor(std::move(socket));
    return NamedEventResult::Created;
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

} // namespace kestrine
