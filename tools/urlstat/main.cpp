// Shows what statistics files and top lists hold. Reads only; may run while the service does.
//
// Exit code: 0 when the whole file was read and is good, 1 when it is damaged or cannot be read or
// the output cannot be written, above 100 for a command line that is not understood.
#include "commands.h"
#include "frame/log.h"
#include "version.h"

#include <CLI/CLI.hpp>

#include <cinttypes>
#include <cstdio>
#include <exception>
#include <limits>

using namespace kestrine;
using namespace kestrine::viewer;

namespace {

struct Arguments {
    std::string file;
    bool weekMonth = false;
    uint32_t number = 10;
    bool blocks = false;
};

CLI::App* addCommand(CLI::App& app, const std::string& name, const std::string& description,
                     Arguments& arguments) {
    CLI::App* const command = app.add_subcommand(name, description);
    command->add_option("FILE", arguments.file, "Statistics file or top list")->required();
    command->add_flag("--week-month", arguments.weekMonth,
                      "Read it as a week or month file, whatever its name");
    return command;
}

int run(const CLI::App& app, const Arguments& arguments) {
    const char* const path = arguments.file.c_str();
    CheckedFile file;
    const FileKind kind = arguments.weekMonth ? FileKind::WeekMonth : kindOf(arguments.file);
    if (file.open(arguments.file, kind) != 0) {
        std::fprintf(stderr, "urlstat: %s cannot be opened\n", path);
        return 1;
    }
    if (app.got_subcommand("top")) {
        printTop(file, arguments.number);
    } else if (app.got_subcommand("status")) {
        printStatus(file);
    } else {
        printRecords(file, arguments.blocks);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "urlstat: the output cannot be written\n");
        return 1;
    }
    if (file.faults() != 0) {
        std::fprintf(stderr, "urlstat: %s is damaged, faults: %" PRIu64 "\n", path, file.faults());
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) try {
    reportErrorsToStderr();
    CLI::App app("Shows what a statistics file or a top list holds, and whether it is good.");
    app.set_version_flag("--version", std::string("urlstat ") + g_version);
    app.require_subcommand(1);
    Arguments arguments;
    CLI::App* const top = addCommand(app, "top", "Print the most visited hosts", arguments);
    top->add_option("-n", arguments.number, "Hosts to print")
        ->check(CLI::Range(uint32_t{1}, std::numeric_limits<uint32_t>::max()))
        ->capture_default_str();
    addCommand(app, "status", "Print what the file holds and check it", arguments);
    CLI::App* const dump =
        addCommand(app, "dump", "Print every record: key, count, type, host", arguments);
    dump->add_flag("--blocks", arguments.blocks, "Print the header of each block too");
    CLI11_PARSE(app, argc, argv);
    return run(app, arguments);
} catch (const std::exception& error) {
    std::fprintf(stderr, "urlstat: %s\n", error.what());
    return 1;
}
