#include "session.h"

#include "failure.h"
#include "frame/install_root.h"
#include "frame/log.h"
#include "service/start_up.h"

#include <CLI/CLI.hpp>

namespace kestrine::build {

Session::Session(CLI::App& app) : m_app(app) {
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--root", m_root, "Installation root");
    app.add_flag("--verbose", m_verbose,
                 "Every report to the standard error stream, not errors alone");
}

Command Session::addCommand(const std::string& name, const std::string& description,
                            const std::string& example, std::function<int()> run) {
    CLI::App* const command = m_app.add_subcommand(name, description);
    command->fallthrough();
    command->footer("Example:\n  urlbuild " + example +
                    "\n\nOptions of all commands (urlbuild --help): --root, --verbose");
    command->callback([this, run = std::move(run)] {
        if (m_verbose) {
            reportAllToStderr();
        } else {
            reportErrorsToStderr();
        }
        enterRoot();
        m_result = run();
    });
    return Command(*command);
}

void Session::enterRoot() const {
    CommandLine line;
    line.root = m_root;
    std::string failure;
    if (nameRoot(line, failure) != 0) {
        throw usage(failure + "; it is the directory of mysql_path.ini");
    }
}

std::vector<std::string> Session::commonArguments() const {
    std::vector<std::string> words;
    if (const std::string& root = install::namedRoot(); !root.empty()) {
        words.insert(words.end(), {"--root", root});
    }
    if (m_verbose) {
        words.emplace_back("--verbose");
    }
    return words;
}

} // namespace kestrine::build
