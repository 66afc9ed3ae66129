#include "service/start_up.h"

#include "frame/ini_file.h"
#include "frame/log.h"
#include "frame/text.h"
#include "service/check.h"
#include "storage/codec.h"
#include "version.h"

#include <cerrno>

namespace kestrine {

namespace {

constexpr std::string_view g_debugPrefix = "debug=";

constexpr std::string_view g_help =
    R"(kestrine: counts the visited hosts of network-access logs, per account, day, week and month.

Started without an option it runs until signal 15 or 2 (Ctrl-C); one instance on a machine.

  --check    say which settings hold, what the paths resolve to, which accounts there are and what
             is wrong; changes nothing
  --version  print the version
  --help     print this
  debug=N    accepted, changes nothing at present
Any other argument is ignored.

Files that it reads, PROGRAM being the directory of this program:
  config/urlstat.ini               settings, in the working directory
  PROGRAM/config/syncaccount.dat   accounts
  mysql_path.ini                   where the log data lies, above the last "/ml" of PROGRAM
  /etc/veltan/logconfig.ini        settings of the logging product
Its log is PROGRAM/log/kestrine/kestrineYYYYMMDD.txt.

Exit codes:
  0         stopped in order; of --check: nothing is wrong
  1         of --check: something is wrong, or the service is running
  -1 (255)  another instance is running, or the start, a pass or the clean-up failed; see the log
)";

int answer(const std::string& text, int code) {
    platform().writeConsole(text, false);
    return code;
}

int answerCheck() {
    std::string report;
    const int result = checkSetup(report);
    return answer(report, result);
}

} // namespace

int32_t g_debugLevel = 0;

std::optional<int> answerWithoutStart(std::span<char* const> arguments) {
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--help") {
            return answer(std::string(g_help), 0);
        }
        if (argument == "--version") {
            return answer(std::string("kestrine ") + g_version + "\ndecodes with " +
                              codec::decoder() + ", encodes with " + codec::encoder() + "\n",
                          0);
        }
        if (argument == "--check") {
            return answerCheck();
        }
    }
    return std::nullopt;
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
