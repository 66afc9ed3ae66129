// What is due, by the service's own tests. Nothing is changed, and nothing repaired:
// over a tree that needs repair only the check is planned, and the rest shows behind it.
#pragma once

#include "frame/configuration.h"
#include "plan.h"

#include <string>

namespace kestrine::build {

// Of all accounts. The roots in the settings are fixed. Throws Failure when the accounts cannot be
// told.
[[nodiscard]] Plan makePlan(const Configuration& configuration);

} // namespace kestrine::build
