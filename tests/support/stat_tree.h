// A statistics tree of a test's own, on a disk in memory: roots configured, space enough, the run
// flag set.
#pragma once

#include "frame/configuration.h"
#include "frame/run_flag.h"
#include "support/memory_disk.h"
#include "support/url_file_helper.h"
#include "tree/names.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrine::test {

// What lies in new-day file `number` of a date: one record of its own and one that all files share.
[[nodiscard]] TestRecords recordsOf(int32_t number, const std::string& date);

// Names of the files that only one of the two has, or that differ; "" when there are none.
[[nodiscard]] std::string difference(const std::map<std::string, MemoryDisk::Bytes>& a,
                                     const std::map<std::string, MemoryDisk::Bytes>& b);
// Fails unless the directory's "topn" holds exactly the lists of these records.
void expectTopLists(const std::string& directory, const TestRecords& records);
// Fails unless the file is whole, holds the records with their sum, and its directory's top lists
// are right.
void expectPeriodFile(const std::string& path, uint32_t type, const TestRecords& records);

class StatTree : public testing::Test {
protected:
    StatTree();
    ~StatTree() override;
    // Loaded when they are not.
    static Configuration& settings();

    static constexpr const char* g_root = "/t/stat";
    static constexpr const char* g_accountDir = "/t/stat/acc";
    static constexpr const char* g_memoryDisk = "/t/mem";
    static constexpr const char* g_account = "/t/log_data/acc";

    [[nodiscard]] std::string newDir(const std::string& date) const {
        return names::newDayDir(g_accountDir, date);
    }
    [[nodiscard]] std::string newFile(const std::string& date, int32_t number) const {
        return names::newDayFile(newDir(date), number);
    }
    [[nodiscard]] std::string dayFile(const std::string& date) const {
        return names::formalFile(names::dayDir(g_accountDir, date), Period::Day);
    }
    // The account's node of a date.
    [[nodiscard]] std::string node(const std::string& date) const {
        return g_account + ("/devid_1/" + date);
    }

    // Each returns the path. The positions of new-day file N name log file N.
    std::string putNew(const std::string& date, int32_t number);
    // A day file that holds the new-day files 0 to `counter`.
    std::string putDay(const std::string& date, int32_t counter);
    template <typename Status>
    std::string put(const std::string& path, const TestRecords& records, Status status) {
        writeUrlFile(path, {records}, std::move(status));
        return path;
    }
    [[nodiscard]] static TestRecords upTo(int32_t counter, const std::string& date);

    FakeClockPlatform m_clock;
    MemoryDisk m_disk{m_clock};
    // m_dir / "name": a path for files of the test's own, in the memory disk's directory.
    struct {
        std::string operator/(const std::string& name) const {
            return g_memoryDisk + ("/acc/20120303/" + name);
        }
    } m_dir;

private:
    ScopedPlatform m_scope{m_disk};
};

} // namespace kestrine::test
