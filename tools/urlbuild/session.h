// What all commands share: the options that stand before or behind any of them, and how a command
// is carried out.
#pragma once

#include "command.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestrine::build {

class Session {
public:
    // Adds the common options.
    explicit Session(CLI::App& app);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // A command: carried out by `run`, which returns the exit code, once the command line is read.
    // `example` is a command line without "urlbuild ".
    Command addCommand(const std::string& name, const std::string& description,
                       const std::string& example, std::function<int()> run);
    // Exit code of the command that was carried out.
    [[nodiscard]] int result() const { return m_result; }
    [[nodiscard]] bool verbose() const { return m_verbose; }
    // The common options as they were given, for another process.
    [[nodiscard]] std::vector<std::string> commonArguments() const;

private:
    void enterRoot() const;

    CLI::App& m_app;
    std::optional<std::string> m_root;
    bool m_verbose = false;
    int m_result = 0;
};

// The commands; each file adds its own.
void addPlan(Session& session);
void addAll(Session& session);
void addUnits(Session& session);

} // namespace kestrine::build
