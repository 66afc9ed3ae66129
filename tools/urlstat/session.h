// What all commands share: the options that stand before or behind any of them, and what follows
// from these.
#pragma once

#include "command.h"
#include "formats.h"
#include "output.h"
#include "stat_tree.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kestrine::viewer {

class Session {
public:
    // Adds the common options.
    explicit Session(CLI::App& app);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // A command: carried out by `run`, which returns the exit code, once the command line is read.
    // `example` is a command line without "urlstat ".
    Command addCommand(const std::string& name, const std::string& description,
                       const std::string& example, std::function<int()> run);
    // Exit code of the command that was carried out.
    [[nodiscard]] int result() const { return m_result; }

    // Throws Failure when it cannot be told; the directories need not be there.
    [[nodiscard]] const TreePlace& place();
    // Throws Failure when it is not there.
    [[nodiscard]] StatTree tree();
    // Those that the command line chooses; all of them if it names none and `allUnlessNamed`.
    // Throws Failure.
    [[nodiscard]] std::vector<std::string> accounts(const StatTree& tree,
                                                    bool allUnlessNamed = false) const;
    // Those that the command line names.
    [[nodiscard]] const std::vector<std::string>& namedAccounts() const { return m_accounts; }
    [[nodiscard]] bool allAccounts() const { return m_allAccounts; }
    [[nodiscard]] const std::string& format() const { return m_format; }
    // Where rows go, in the format that was asked for.
    [[nodiscard]] RowSink& sink();
    [[nodiscard]] Output& output() { return m_output; }
    [[nodiscard]] bool verbose() const { return m_verbose; }

private:
    CLI::App& m_app;
    std::string m_root;
    std::string m_config;
    std::vector<std::string> m_accounts;
    bool m_allAccounts = false;
    std::string m_format = "table";
    bool m_verbose = false;
    Output m_output;
    TreePlace m_place;
    std::unique_ptr<RowSink> m_sink;
    int m_result = 0;
};

// The commands, each in its own file; each adds itself.
void addPeriods(Session& session);
void addTop(Session& session);
void addHost(Session& session);
void addCompare(Session& session);
void addBacklog(Session& session);
void addVerify(Session& session);
void addDiff(Session& session);
void addExport(Session& session);
void addStatus(Session& session);
void addReport(Session& session);

} // namespace kestrine::viewer
