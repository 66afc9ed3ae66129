#include "service/command_line.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace kestrine {

namespace {

using Command = CommandLine::Command;

constexpr std::array<std::pair<std::string_view, Command>, 5> g_commands = {{
    {"--help", Command::Help},
    {"--version", Command::Version},
    {"--check", Command::Check},
    {"--install", Command::Install},
    {"--uninstall", Command::Uninstall},
}};

constexpr std::array<std::string_view, 3> g_options = {"--root", "--name", g_managedOption};

// The values of the options, by their place in `g_options`.
using Values = std::array<std::optional<std::string>, g_options.size()>;

// Takes an option's value, the argument behind it. False when there is none; of an option it is
// never the name of another one, which would be a directory or service that nobody has meant.
bool takeValue(std::span<char* const> arguments, size_t at, std::optional<std::string>& value) {
    const bool there = at + 1 < arguments.size() && *arguments[at + 1] != '\0' &&
                       !std::string_view(arguments[at + 1]).starts_with("--");
    if (there && !value) {
        value = arguments[at + 1];
    }
    return there;
}

} // namespace

CommandLine parseCommandLine(std::span<char* const> arguments) {
    CommandLine line;
    Values values;
    bool found = false;
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        const auto* const command =
            std::ranges::find(g_commands, argument, [](const auto& entry) { return entry.first; });
        if (command != g_commands.end() && !found) {
            line.command = command->second;
            found = true;
        }
        const auto* const option = std::ranges::find(g_options, argument);
        if (option == g_options.end()) {
            continue;
        }
        if (takeValue(arguments, i, values[static_cast<size_t>(option - g_options.begin())])) {
            ++i;
        } else if (line.fault.empty()) {
            line.fault = std::string(argument) + " needs a value";
        }
    }
    auto& [root, name, managed] = values;
    line.root = std::move(root);
    if (managed && !found) {
        line.command = Command::RunManaged;
    }
    if (managed || name) {
        line.name = managed ? *managed : *name;
    }
    return line;
}

} // namespace kestrine
