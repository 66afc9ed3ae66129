// How a plan is printed.
#pragma once

#include "plan.h"

#include <string>

namespace kestrine::build {

// For people: a line a unit, and one that sums them up.
[[nodiscard]] std::string tableText(const Plan& plan);
// For programs, as doc/man/urlbuild.1 describes it: one object, each unit in a line of its own.
[[nodiscard]] std::string jsonText(const Plan& plan);

} // namespace kestrine::build
