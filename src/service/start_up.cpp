#include "service/start_up.h"

#include "frame/install_root.h"
#include "frame/log.h"
#include "frame/text.h"
#include "platform/service_manager.h"
#include "service/check.h"
#include "storage/codec.h"
#include "version.h"

#include <exception>

namespace kestrine {

namespace {

constexpr std::string_view g_debugPrefix = "debug=";

constexpr std::string_view g_help =
    R"(kestrine: counts the visited hosts of network-access logs, per account, day, week and month.

Started without an option it runs until signal 15 or 2 (Ctrl-C); one instance on a machine.

  --check       say which settings hold, what the paths resolve to, which accounts there are and
                what is wrong; changes nothing
  --root DIR    the installation lies in DIR, and the working directory does not matter
  --install     Windows: have the service manager start this program, with --root if that is given
  --uninstall   Windows: undo that
  --name NAME   with these two: the service's name, "Kestrine" if it is left out
  --version     print the version
  --help        print this
  debug=N       accepted, changes nothing at present
Any other argument is ignored.

Files that it reads, PROGRAM being the directory of this program:
  config/urlstat.ini               settings, in the working directory
  PROGRAM/config/syncaccount.dat   accounts
  mysql_path.ini                   where the log data lies, above the last "/ml" of PROGRAM
  /etc/veltan/logconfig.ini        settings of the logging product
Its log is PROGRAM/log/kestrine/kestrineYYYYMMDD.txt.
With --root they are DIR/config/urlstat.ini, DIR/config/syncaccount.dat, DIR/mysql_path.ini and
DIR/log/kestrine/kestrineYYYYMMDD.txt.

Exit codes:
  0         stopped in order; of --check: nothing is wrong
  1         of --check: something is wrong, or the service is running
  -1 (255)  another instance is running, or the start, a pass or the clean-up failed; see the log.
            Also of --install and --uninstall, and of a root that is no directory
)";

int answer(const std::string& text, int code) {
    platform().writeConsole(text, false);
    return code;
}

// Not through the log, of which it is not known where it lies.
int refuse(const std::string& failure) {
    platform().writeConsole("kestrine: " + failure + "\n", true);
    return -1;
}

int answerCheck() {
    std::string report;
    const int result = checkSetup(report);
    return answer(report, result);
}

int answerInstall(const std::string& name) {
    const bool usual = name == g_serviceName;
    ServiceEntry entry{name,
                       "Kestrine URL statistics" + (usual ? "" : " (" + name + ")"),
                       "Counts the visited hosts of network-access logs, per account, day, week "
                       "and month.",
                       {g_managedOption, name}};
    if (const std::string& root = install::namedRoot(); !root.empty()) {
        entry.arguments.insert(entry.arguments.end(), {"--root", root});
    }
    std::string failure;
    if (installService(entry, failure) != 0) {
        return refuse(failure);
    }
    return answer("service " + name +
                      " is installed; it starts with the machine, or now: net start \"" + name +
                      "\"\n",
                  0);
}

int answerUninstall(const std::string& name) {
    std::string failure;
    if (uninstallService(name, g_managedOption, failure) != 0) {
        return refuse(failure);
    }
    return answer("service " + name + " is uninstalled\n", 0);
}

} // namespace

int32_t g_debugLevel = 0;

int nameRoot(const CommandLine& line, std::string& failure) {
    if (!line.fault.empty()) {
        failure = line.fault;
        return -1;
    }
    if (!line.root) {
        return 0;
    }
    std::string root = platform().resolvedPath(*line.root);
    Util::replaceChar(root, '\\', '/');
    FileInfo info;
    if (root.empty() || platform().info(root, info) != 0 || !info.isDirectory) {
        failure = "--root " + *line.root + ": no directory" +
                  (root.empty() || root == *line.root ? "" : " (" + root + ")");
        return -1;
    }
    install::nameRoot(root);
    return 0;
}

std::optional<int> answerWithoutStart(const CommandLine& line) {
    switch (line.command) {
    case CommandLine::Command::Help:
        return answer(std::string(g_help), 0);
    case CommandLine::Command::Version:
        return answer(std::string("kestrine ") + g_version + "\ndecodes with " + codec::decoder() +
                          ", encodes with " + codec::encoder() + "\n",
                      0);
    case CommandLine::Command::RunManaged: // tells the service manager why it fails
        return std::nullopt;
    default:
        break;
    }
    std::string failure;
    if (nameRoot(line, failure) != 0) {
        return refuse(failure);
    }
    switch (line.command) {
    case CommandLine::Command::Check:
        return answerCheck();
    case CommandLine::Command::Install:
        return answerInstall(line.name);
    case CommandLine::Command::Uninstall:
        return answerUninstall(line.name);
    default:
        return std::nullopt;
    }
}

int runManaged(const CommandLine& line, const std::function<int()>& service) {
    const auto body = [&](std::string& failure) {
        if (nameRoot(line, failure) != 0) {
            return -1;
        }
        int result = -1;
        try { // the service manager has called
            result = service();
        } catch (const std::exception& exception) {
            LOG_ERROR("out of resources: %s", exception.what());
        }
        if (result != 0) {
            failure = "Kestrine has ended with a failure, of which its log tells more: " +
                      install::logDirectory();
        }
        return result;
    };
    std::string failure;
    const int result = runAsService(line.name, body, failure);
    return failure.empty() ? result : refuse(failure);
}

int onlyOneInstance(std::unique_ptr<NamedEvent>* event) {
    std::unique_ptr<NamedEvent> created;
    switch (platform().createNamedEvent(g_instanceName, created)) {
    case NamedEventResult::InitializeDescriptorFailed:
        return LOG_FAIL("InitializeSecurityDescriptor fail errcode %u", platform().lastError());
    case NamedEventResult::SetDaclFailed:
        return LOG_FAIL("SetSecurityDescriptorDacl fail errcode %u", platform().lastError());
    case NamedEventResult::CreateFailed:
        logConsoleFirst(LogLevel::Error, KESTRINE_HERE, "CreateEvent %s failed!", g_instanceName);
        // Not -1, but any result other than 0 ends the start.
        return 1;
    case NamedEventResult::AlreadyExists:
        // The handle is given out in this case, too.
        if (created && created->close() != 0) {
            logConsoleFirst(LogLevel::Error, KESTRINE_HERE, "CloseHandle fail errcode %u",
                            platform().lastError());
        }
        LOG_INFO("another instance is running");
        return -1;
    case NamedEventResult::Created:
        break;
    }
    *event = std::move(created);
    return 0;
}

const char* findDebugArgument(std::span<char* const> arguments) {
    for (size_t i = 1; i < arguments.size(); ++i) {
        if (std::string_view(arguments[i]).starts_with(g_debugPrefix)) {
            return arguments[i];
        }
    }
    return nullptr;
}

int32_t debugLevelOf(std::string_view argument) {
    return leadingInteger(argument.substr(g_debugPrefix.size()));
}

} // namespace kestrine
