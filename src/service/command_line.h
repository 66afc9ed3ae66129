// What the command line asks for.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace kestrine {

constexpr const char* g_serviceName = "Kestrine";
// Of a process that the service manager has started, with the service's name behind it.
constexpr const char* g_managedOption = "--service";

struct CommandLine {
    enum class Command { Run, RunManaged, Check, Install, Uninstall, Version, Help };

    Command command = Command::Run;
    std::string name = g_serviceName; // of a service
    std::optional<std::string> root;  // as given
    std::string fault;                // what is wrong with it, empty if nothing
};

// The first of the commands counts, and of each option the first. An argument that is none of them
// is ignored ("debug=" is looked for apart), also one that says "--name" where there is no service.
[[nodiscard]] CommandLine parseCommandLine(std::span<char* const> arguments);

} // namespace kestrine
