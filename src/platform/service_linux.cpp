// systemd: a datagram of lines NAME=VALUE to the socket that it names in the environment.
#include "platform/service_manager.h"
#include "platform/system_linux.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

namespace kestrine {

namespace {

constexpr const char* g_noManager =
    "there is no service manager of this kind on this system; use a systemd unit, as the package "
    "brings one";

// Empty when it is not set.
std::string_view environment(const char* name) {
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody sets any
    return value == nullptr ? std::string_view() : std::string_view(value);
}

// The whole text as a number; 0 otherwise.
uint64_t numberOf(std::string_view text) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

const char* linesOf(Notice notice) {
    switch (notice) {
    case Notice::Ready:
        return "READY=1\n";
    case Notice::Alive:
        return "WATCHDOG=1\n";
    case Notice::Stopping:
        return "STOPPING=1\n";
    case Notice::Status:
        break;
    }
    return "";
}

int send(std::string_view socketName, std::string_view message) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketName.size() >= sizeof(address.sun_path)) {
        return fail(ENAMETOOLONG);
    }
    std::memcpy(address.sun_path, socketName.data(), socketName.size());
    // A name that lives in no file system begins with a zero byte, which is written as '@'.
    if (address.sun_path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socketName.size());
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    constexpr timeval patience{1, 0}; // for a reader that is behind
    if (socket.get() < 0 ||
        ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) != 0) {
        return fail();
    }
    const void* const generic = &address;
    const auto sent = ::sendto(socket.get(), message.data(), message.size(), MSG_NOSIGNAL,
                               static_cast<const sockaddr*>(generic), length);
    return sent < 0 ? fail() : 0;
}

} // namespace

uint32_t patienceOfSupervisor() {
    const std::string_view process = environment("WATCHDOG_PID");
    // Meant for another process, which has handed its environment on.
    const bool forThis = process.empty() || numberOf(process) == static_cast<uint64_t>(::getpid());
    if (!forThis || environment("NOTIFY_SOCKET").empty()) {
        return 0;
    }
    constexpr uint64_t most = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(std::min(numberOf(environment("WATCHDOG_USEC")) / 1000, most));
}

int notifySupervisor(Notice notice, const std::string& status) {
    const std::string_view socketName = environment("NOTIFY_SOCKET");
    if (socketName.empty()) {
        return 0;
    }
    std::string message = linesOf(notice);
    if (!status.empty()) {
        std::string line = status;
        // Names come from outside: none must begin a line of its own.
        std::ranges::replace_if(
            line, [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; }, '?');
        message += "STATUS=" + line + "\n";
    }
    return send(socketName, message);
}

int installService(const ServiceEntry&, std::string& failure) {
    failure = g_noManager;
    return -1;
}

int uninstallService(const std::string&, const std::string&, std::string& failure) {
    failure = g_noManager;
    return -1;
}

int runAsService(const std::string&, const ServiceBody&, std::string& failure) {
    failure = g_noManager;
    return -1;
}

} // namespace kestrine
