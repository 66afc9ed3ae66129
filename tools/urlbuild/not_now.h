// The third way in which a command ends, beside success and failure.
#pragma once

#include "failure.h"

#include <string>

namespace kestrine::build {

// Exit code: nothing is wrong, nothing was harmed, and later it may go.
constexpr int g_notNow = 3;

[[nodiscard]] inline Failure notNow(const std::string& text) {
    return Failure(text, g_notNow);
}

} // namespace kestrine::build
