// A statistics tree of a test's own: roots configured, space enough, the run flag set.
#pragma once

#include "frame/configuration.h"
#include "frame/run_flag.h"
#include "frame/tree_names.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrine::test {

using Tree = std::map<std::string, std::string>;

// The records of all parts, equal keys summed; type and text are those of the first.
[[nodiscard]] TestRecords summed(const std::vector<TestRecords>& parts);
// What lies in new-day file `number` of a date: one record of its own and one that all files share.
[[nodiscard]] TestRecords recordsOf(int32_t number, const std::string& date);

// Fails unless the directory's "topn" holds exactly the lists of these records.
void expectTopLists(const std::string& directory, const TestRecords& records);
// Fails unless the file is whole, holds the records with their sum, and its directory's top lists
// are right.
void expectPeriodFile(const std::string& path, uint32_t type, const TestRecords& records);

// ROOT is `stat` below the test's directory, the account `acc`.
class StatTree : public testing::Test {
protected:
    StatTree();
    ~StatTree() override;

    [[nodiscard]] std::string root() const { return m_dir / "stat"; }
    [[nodiscard]] std::string accountDir() const { return m_dir / "stat/acc"; }
    [[nodiscard]] std::string newDir(const std::string& date) const {
        return names::newDayDir(accountDir(), date);
    }
    [[nodiscard]] std::string newFile(const std::string& date, int32_t number) const {
        return names::newDayFile(newDir(date), number);
    }
    [[nodiscard]] std::string dayFile(const std::string& date) const {
        return names::formalFile(names::dayDir(accountDir(), date), Period::Day);
    }
    // Path of the account's log data; its node of a date.
    [[nodiscard]] std::string account() const { return m_dir / "log_data/acc"; }
    [[nodiscard]] std::string node(const std::string& date) const {
        return account() + "/devid_1/" + date;
    }

    // Each returns the path. The positions of new-day file N name log file N.
    std::string putNew(const std::string& date, int32_t number);
    // A day file that holds the new-day files 0 to `counter`.
    std::string putDay(const std::string& date, int32_t counter);
    std::string put(const std::string& path, const TestRecords& records, DayStatus status);
    std::string put(const std::string& path, const TestRecords& records, WeekMonStatus status);
    [[nodiscard]] static TestRecords upTo(int32_t counter, const std::string& date);

    TempDir m_dir;
    FakeClockPlatform m_clock;

private:
    ScopedPlatform m_scope{m_clock};
};

} // namespace kestrine::test
