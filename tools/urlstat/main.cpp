// Shows what the statistics hold. Reads only; may run while the service does.
//
// Exit code: 0; 1 when something is wrong with the data, or cannot be read or written; 2 for a
// command line that is not understood.
#include "failure.h"
#include "session.h"
#include "version.h"

#include "platform/platform.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

using namespace kestrine;
using namespace kestrine::viewer;

namespace {

// A word that begins no command, where the command stands; the library speaks of what it expected.
std::string explained(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> words = app.remaining();
    if (app.get_subcommands().empty() && !words.empty()) {
        const bool option = words.front().starts_with('-');
        return words.front() + (option ? ": unknown option" : ": unknown subcommand") +
               "; urlstat --help lists them";
    }
    return std::string(error.what()) + "; \"urlstat COMMAND --help\" tells more";
}

int run(int argc, char** argv) {
    CLI::App app("Shows what the statistics hold, and whether they are good.");
    app.name("urlstat");
    app.allow_windows_style_options(false); // "/x" is a path
    app.set_version_flag("--version", std::string("urlstat ") + g_version);
    Session session(app);
    addPeriods(session);
    addTop(session);
    addHost(session);
    addCompare(session);
    addBacklog(session);
    addVerify(session);
    addDiff(session);
    addExport(session);
    addStatus(session);
    addReport(session);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error); // --help, --version
        }
        throw usage(explained(app, error));
    }
    return session.result();
}

} // namespace

int main(int argc, char** argv) try {
    platform().prepareConsole();
    return run(argc, argv);
} catch (const OutputClosed&) {
    return 0;
} catch (const Failure& failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "urlstat: %s\n", failure.what());
    return failure.code();
} catch (const std::exception& error) {
    std::fprintf(stderr, "urlstat: %s\n", error.what());
    return g_dataWrong;
}
