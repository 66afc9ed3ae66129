#include "session.h"

#include "failure.h"
#include "frame/log.h"

#include <CLI/CLI.hpp>

namespace kestrine::viewer {

Session::Session(CLI::App& app) : m_app(app) {
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--root", m_root, "Statistics root");
    app.add_option("--config", m_config, "Settings of the service (config/urlstat.ini)");
    app.add_option("--account", m_accounts, "Account; may be given again")->allow_extra_args(false);
    app.add_flag("--all-accounts", m_allAccounts, "Every account");
    app.add_option("--format", m_format, "table, csv, json, ndjson (backlog: prometheus, too)")
        ->capture_default_str();
    app.add_flag("--verbose", m_verbose, "Say more of how it was found out");
}

Command Session::addCommand(const std::string& name, const std::string& description,
                            const std::string& example, std::function<int()> run) {
    CLI::App* const command = m_app.add_subcommand(name, description);
    command->fallthrough();
    command->footer("Example:\n  urlstat " + example +
                    "\n\nOptions of all commands (urlstat --help): --root, --config, --account, "
                    "--all-accounts, --format, --verbose");
    command->callback([this, run = std::move(run)] {
        // The modules' own reports name functions, which help nobody who asks for numbers.
        if (m_verbose) {
            reportErrorsToStderr();
        } else {
            discardReports();
        }
        m_result = run();
        m_output.flush();
    });
    return Command(*command);
}

const TreePlace& Session::place() {
    if (m_place.root.empty()) {
        m_place = findTree(m_root, m_config);
    }
    return m_place;
}

StatTree Session::tree() {
    requireRoot(place().root);
    return StatTree(place().root);
}

std::vector<std::string> Session::accounts(const StatTree& tree, bool allUnlessNamed) const {
    return chosenAccounts(tree, m_accounts, m_allAccounts || allUnlessNamed);
}

RowSink& Session::sink() {
    if (!m_sink) {
        m_sink = makeSink(m_format, m_output);
    }
    return *m_sink;
}

} // namespace kestrine::viewer
