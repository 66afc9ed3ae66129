// Carries out the service's work in units, many processes at once.
//
// Exit code: 0 done, or nothing was due; 1 failed; 2 the command line is not understood, or the
// version refused; 3 not now: try again later.
#include "failure.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "service/run_control.h"
#include "session.h"
#include "version.h"

#include <CLI/CLI.hpp>

#include <array>
#include <exception>

using namespace kestrine;
using namespace kestrine::build;

namespace {

int run(int argc, char** argv) {
    CLI::App app("Carries out the work of the service in units, many at once.");
    app.name("urlbuild");
    app.allow_windows_style_options(false); // "/x" is a path
    app.set_version_flag("--version", std::string("urlbuild ") + g_version);
    Session session(app);
    addPlan(session);
    addAll(session);
    addUnits(session);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error); // --help, --version
        }
        throw usage(std::string(error.what()) + "; \"urlbuild COMMAND --help\" tells more");
    }
    return session.result();
}

int fail(const std::string& text, int code) {
    platform().writeConsole("urlbuild: " + text + "\n", true);
    return code;
}

} // namespace

int main(int argc, char** argv) try {
    platform().prepareConsole();
    // Set before the handler stands, so that no request is ever overwritten.
    g_isRunning = 1;
    constexpr std::array stopSignals = {15, 2};
    if (platform().installSignalHandler(stopSignals, signal_handler) != 0) {
        return fail("signals: cannot be handled", g_dataWrong);
    }
    const int result = run(argc, argv);
    waitForSignalHandlers();
    return result;
} catch (const Failure& failure) {
    waitForSignalHandlers();
    return fail(failure.what(), failure.code());
} catch (const std::exception& error) {
    return fail(std::string("out of resources: ") + error.what(), g_dataWrong);
}
