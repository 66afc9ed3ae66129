// Steps of the process entry.
#pragma once

#include "platform/platform.h"
#include "service/command_line.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kestrine {

// Machine-wide name that exists while an instance runs.
constexpr const char* g_instanceName = "Global\\MarrowlandEvent_Kestrine";

// Set once from the argument "debug=N"; nothing consults it.
extern int32_t g_debugLevel;

// Names the installation root that the command line gives (frame/install_root.h): 0, or -1 with the
// reason in `failure`, also when something is wrong with the line.
[[nodiscard]] int nameRoot(const CommandLine& line, std::string& failure);

// Carries out every command but the start of the service; the result is the exit code, also of a
// command line that nothing can be started with. None when the service is to be started, with its
// root named unless the service manager starts it.
[[nodiscard]] std::optional<int> answerWithoutStart(const CommandLine& line);

// Runs the service under the service manager: its exit code, or -1.
[[nodiscard]] int runManaged(const CommandLine& line, const std::function<int()>& service);

// 0 when this is the only instance, whose event is stored; -1 when another one runs or the event
// could not be prepared; 1 when it could not be created.
[[nodiscard]] int onlyOneInstance(std::unique_ptr<NamedEvent>* event);

// The first argument after the program's name that begins with "debug=", null when there is none.
[[nodiscard]] const char* findDebugArgument(std::span<char* const> arguments);

// The number of a "debug=" argument, 0 when it has none.
[[nodiscard]] int32_t debugLevelOf(std::string_view argument);

} // namespace kestrine
