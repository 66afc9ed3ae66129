#include "session.h"

#include "frame/log.h"

#include <CLI/CLI.hpp>

namespace kestrine::build {

Session::Session(CLI::App& app) : m_app(app) {
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("--verbose", m_verbose,
                 "Every report to the standard error stream, not errors alone");
}

Command Session::addCommand(const std::string& name, const std::string& description,
                            const std::string& example, std::function<int()> run) {
    CLI::App* const command = m_app.add_subcommand(name, description);
    command->fallthrough();
    command->footer("Example:\n  urlbuild " + example +
                    "\n\nOptions of all commands (urlbuild --help): --verbose");
    command->callback([this, run = std::move(run)] {
        if (m_verbose) {
            reportAllToStderr();
        } else {
            reportErrorsToStderr();
        }
        m_result = run();
    });
    return Command(*command);
}

std::vector<std::string> Session::commonArguments() const {
    return m_verbose ? std::vector<std::string>{"--verbose"} : std::vector<std::string>();
}

} // namespace kestrine::build
