// Steps of the process entry.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace kestrine {

// Machine-wide name that exists while an instance runs.
constexpr const char* g_instanceName = "Global\\MarrowlandEvent_Kestrine";

// Set once from the argument "debug=N"; nothing consults it.
extern int32_t g_debugLevel;

// Answers the first of the arguments "--help", "--version" and "--check" on the standard output;
// the result is the exit code. None when there is no such argument: any other one is ignored, but
// for "debug=".
[[nodiscard]] std::optional<int> answerWithoutStart(std::span<char* const> arguments);

// 0 when this is the only instance, whose event is stored; -1 when another one runs or the event
// could not be prepared; 1 when it could not be created.
[[nodiscard]] int onlyOneInstance(std::unique_ptr<NamedEvent>* event);

// The first argument after the program's name that begins with "debug=", null when there is none.
[[nodiscard]] const char* findDebugArgument(std::span<char* const> arguments);

// The number of a "debug=" argument, 0 when it has none.
[[nodiscard]] int32_t debugLevelOf(std::string_view argument);

} // namespace kestrine
