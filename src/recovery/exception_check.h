// The start-up check of one account: brings its part of the statistics tree back to a consistent
// state, whatever an interruption left. It may itself be interrupted anywhere and done again.
#pragma once

#include "frame/configuration.h"
#include "storage/verify.h"
#include "tree/period.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kestrine {

class ExceptionCheck {
public:
    explicit ExceptionCheck(const Configuration& configuration) : m_configuration(configuration) {}

    // Settles interrupted replacements and removals, sets damaged files aside (file_check.h), gives
    // files without their top lists new ones, and then sets aside what the other files contradict
    // (period_check.h). 0 or -1.
    [[nodiscard]] int check(const std::string& accountPath);

    // The part of it that concerns one date (eight digits), its week and month file excepted, which
    // must be in order; the part that concerns one week or month file. 0 or -1.
    [[nodiscard]] int checkDate(const std::string& accountDir, const std::string& date);
    [[nodiscard]] int checkPeriod(const std::string& directory);

    // One entry of the account's directory. 0 or -1.
    [[nodiscard]] int checkDayWeekMon(const std::string& path, uint32_t attributes);
    // One entry of the "new" tree; one entry of a date directory in it.
    [[nodiscard]] int checknewDirectory(const std::string& path, uint32_t attributes);
    [[nodiscard]] int checkDaycrcsortNew(const std::string& path, uint32_t attributes);

    // One entry of a day, week or month directory: half-written names are removed, names of the
    // formal file's family lead to `tryRecovery`.
    [[nodiscard]] int dealWithFile(const std::string& path);
    // Completes or undoes an interrupted replacement of the formal file.
    [[nodiscard]] int tryRecovery(const std::string& formal);
    // Everything of one day, week or month directory.
    [[nodiscard]] int crcsort(const std::string& directory, Period period);

private:
    [[nodiscard]] int removeHalfWritten(const std::string& path);
    [[nodiscard]] static int giveWayToBackup(const PeriodFiles& files, Period period,
                                             std::optional<FileSums>& sums);
    [[nodiscard]] int settleTopLists(const std::string& directory, Period period);
    [[nodiscard]] int makeMissingLists(const PeriodFiles& files, Period period,
                                       const std::optional<FileSums>& sums);

    const Configuration& m_configuration;
};

} // namespace kestrine
