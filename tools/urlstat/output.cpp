#include "output.h"

#include "failure.h"
#include "platform/closed_pipe.h"
#include "platform/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kestrine::viewer {

namespace {

[[noreturn]] void giveUp() {
    if (isClosedPipe(errno)) {
        throw OutputClosed();
    }
    throw Failure(std::string("the output cannot be written: ") + std::strerror(errno));
}

} // namespace

Output::Output() : m_width(platform().terminalWidth(false)), m_coloured(m_width > 0) {
    const char* const noColour = std::getenv("NO_COLOR");
    if (noColour != nullptr && *noColour != '\0') {
        m_coloured = false;
    }
}

void Output::write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        giveUp();
    }
}

void Output::flush() {
    if (std::fflush(stdout) != 0) {
        giveUp();
    }
}

} // namespace kestrine::viewer
