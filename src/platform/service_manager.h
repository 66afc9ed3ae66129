// The system's manager of services, with which programs are registered to be started by it: that of
// Windows. Other systems have theirs read files, so that there all of this fails and says so.
//
// Each function returns -1 after a failure and leaves the reason in `failure`: a line for whoever
// gave the command.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kestrine {

struct ServiceEntry {
    std::string name;
    std::string title;
    std::string description;
    std::vector<std::string> arguments; // that this program is started with
};

// What the manager carries out. Leaves a line on a failure for the system's event log.
using ServiceBody = std::function<int(std::string& failure)>;

// Registers this program, to be started with the machine and again after a failure.
[[nodiscard]] int installService(const ServiceEntry& entry, std::string& failure);
// Takes out a service that does not run, and whose program is started with the argument `mark`.
[[nodiscard]] int uninstallService(const std::string& name, const std::string& mark,
                                   std::string& failure);
// In a process that the manager has started: runs `body`, which must not throw, in the program's
// directory, on a thread of its own; the result is that of `body`, and the manager is told it.
// Until then its requests to stop, and the end of the system, reach the handler of
// `Platform::installSignalHandler` as signal 15, and `Platform::tellSupervisor` reaches it.
[[nodiscard]] int runAsService(const std::string& name, const ServiceBody& body,
                               std::string& failure);

} // namespace kestrine
