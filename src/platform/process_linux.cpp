// The single-instance name and the signals.
#include "platform/system_linux.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <thread>

namespace kestrine {

namespace {

// Holds the name by its socket, or nothing when the name is another process's.
class SocketName final : public NamedEvent {
public:
    explicit SocketName(Descriptor socket) : m_socket(std::move(socket)) {}
    [[nodiscard]] int close() override { return m_socket.close(); }

private:
    Descriptor m_socket;
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
        event = std::make_unique<SocketName>(Descriptor(-1));
        return NamedEventResult::AlreadyExists;
    }
    event = std::make_unique<SocketName>(std::move(socket));
    return NamedEventResult::Created;
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
            handler(number);
            sigdelset(&waited, number);
            giveDefaultAction(number);
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
    // A reader of our output that goes away must not end the service.
    if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return fail();
    }
    // Every later thread inherits the mask.
    if (const int error = pthread_sigmask(SIG_BLOCK, &waited, nullptr); error != 0) {
        return fail(error);
    }
    try {
        std::thread(waitForSignals, waited, handler).detach();
    } catch (const std::system_error& error) {
        pthread_sigmask(SIG_UNBLOCK, &waited, nullptr);
        return fail(error.code().value());
    }
    return 0;
}

} // namespace kestrine
