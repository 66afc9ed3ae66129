// What a merge into a day file and one into a week or month file differ in: the status of the
// output, and what it says about the inputs.
#pragma once

#include "merge/merge_files.h"
#include "storage/status.h"

#include <string>
#include <vector>

namespace kestrine {

// For every node the highest file number seen in the inputs' statuses, for the counter the highest.
// 0, or -1 when an input's status was not read.
[[nodiscard]] int getNewDayStatus(const std::vector<UrlFile*>& inputs, DayStatus& status);

class PeriodTarget {
public:
    virtual ~PeriodTarget() = default;

    // Before the inputs are opened: the current file, where it takes part, becomes the first one,
    // and what it holds already leaves `paths`. 0 or -1.
    [[nodiscard]] virtual int openSource(MergeFiles& files, const std::string& source,
                                         std::vector<std::string>& paths) = 0;
    // When their statuses are read: `paths` are folded in, of which `inputs` may be temporary
    // merges. Failures name the final path. 0 or -1.
    [[nodiscard]] virtual int combine(const std::vector<UrlFile*>& inputs,
                                      const std::vector<std::string>& paths,
                                      const std::string& finalPath) = 0;
    // With the output's total. 0 or -1.
    [[nodiscard]] virtual int writeStatus(UrlFile& output) = 0;
};

// New-day files into a day file. There need not be a current one.
class DayTarget : public PeriodTarget {
public:
    [[nodiscard]] int openSource(MergeFiles& files, const std::string& source,
                                 std::vector<std::string>& paths) override;
    [[nodiscard]] int combine(const std::vector<UrlFile*>& inputs,
                              const std::vector<std::string>& paths,
                              const std::string& finalPath) override;
    [[nodiscard]] int writeStatus(UrlFile& output) override;

private:
    DayStatus m_status;
};

// New-day files into the current week or month file.
class WeekMonTarget : public PeriodTarget {
public:
    [[nodiscard]] int openSource(MergeFiles& files, const std::string& source,
                                 std::vector<std::string>& paths) override;
    [[nodiscard]] int combine(const std::vector<UrlFile*>& inputs,
                              const std::vector<std::string>& paths,
                              const std::string& finalPath) override;
    [[nodiscard]] int writeStatus(UrlFile& output) override;

protected:
    WeekMonStatus m_status;
};

// Day files into a week or month file, whatever the current one holds.
class RebuiltTarget : public WeekMonTarget {
public:
    explicit RebuiltTarget(int32_t& openFiles) : m_openFiles(openFiles) {}
    // The output holds what the day files hold: each date's counter comes from its day status.
    // Taken before anything is merged, since temporary merges no longer tell the dates apart.
    [[nodiscard]] int openSource(MergeFiles& files, const std::string& source,
                                 std::vector<std::string>& paths) override;
    [[nodiscard]] int combine(const std::vector<UrlFile*>&, const std::vector<std::string>&,
                              const std::string&) override {
        return 0;
    }

private:
    int32_t& m_openFiles;
};

} // namespace kestrine
