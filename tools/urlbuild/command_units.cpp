// The commands that each carry out one unit.
#include "date_text.h"
#include "frame/run_flag.h"
#include "low_space.h"
#include "not_now.h"
#include "session.h"
#include "tree/names.h"
#include "units.h"
#include "version.h"

#include <memory>

namespace kestrine::build {

namespace {

struct Words {
    std::string account;
    std::string date;
    std::string expected; // the version; empty: any
};

void requireVersion(const std::string& expected) {
    if (!expected.empty() && expected != g_version) {
        throw usage(std::string("this is ") + g_version + ", the plan is of " + expected +
                    "; make a new plan, or use the program that made it");
    }
}

// The day's command also takes what passes for a date in the log data and is none of the calendar.
std::string dateOf(const std::string& text, bool ofCalendar) {
    std::string date = dateDigits(text);
    if (!(ofCalendar ? names::isCalendarDate(date) : names::isDateDirName(date))) {
        throw usage(text + ": is no date; write it as 2024-03-05");
    }
    return date;
}

using Unit = std::function<std::string(Installation&, const Words&)>;

int carryOut(const Words& words, const Unit& unit) {
    requireVersion(words.expected);
    Installation installation;
    const LowSpaceNotice notice(installation.directories().urlStatRoot());
    platform().writeConsole(unit(installation, words) + "\n", false);
    return 0;
}

Command add(Session& session, const std::shared_ptr<Words>& words, const std::string& name,
            const std::string& description, const std::string& example, const Unit& unit) {
    Command command = session.addCommand(name, description, example,
                                         [words, unit] { return carryOut(*words, unit); });
    command.requiredText("ACCOUNT", words->account, "Name of the account's directory")
        .text("--expect", words->expected, "Refuse unless this is the program's version");
    return command;
}

void addPeriod(Session& session, Period period, const std::string& name,
               const std::string& description) {
    const auto words = std::make_shared<Words>();
    add(session, words, name, description, name + " acme 2024-03-05",
        [period](Installation& installation, const Words& given) {
            return runPeriod(installation, period, given.account, dateOf(given.date, true));
        })
        .requiredText("DATE", words->date, "A date of it");
}

} // namespace

void addUnits(Session& session) {
    auto words = std::make_shared<Words>();
    add(session, words, "check", "The start-up check of one account", "check acme",
        [](Installation& installation, const Words& given) {
            return runCheck(installation, given.account);
        });
    words = std::make_shared<Words>();
    add(session, words, "day", "New logs of one date into its day file", "day acme 2024-03-05",
        [](Installation& installation, const Words& given) {
            return runDay(installation, given.account, dateOf(given.date, false));
        })
        .requiredText("DATE", words->date, "The date");
    addPeriod(session, Period::Week, "week", "What is new in one week into its file");
    addPeriod(session, Period::Month, "month", "What is new in one month into its file");
}

} // namespace kestrine::build
