// The statistics pipeline of one account.
//
//   log files --read--> hash map --spill--> memory-disk files --merge--> disk temporary files
//     --merge--> new-day file --merge--> day file --> week file, month file; each with top lists
//
// A run performs the first half for all new log data; the merges into day, week and month files
// only when their intervals have passed. A visit counts from the moment at which its new-day file
// has its final name; what is lost before that (a stop, a kill) is read from the logs again.
//
// The logs of one date into the hash map, and the map into sorted files:
//
//  1. Every due node of the date is read from the file after the one that its entry names to the
//     end of the newest file; its entry then takes the position reached.
//  2. When the map's budget is reached its records are sorted by key, the most visited
//     (100 - exportPersent) per cent go back into it, so that hot hosts keep being counted in
//     memory, and the rest is written (spill_writer.h).
//  3. A node that fails after some of its records were counted keeps its old position: those
//     records will be read again, so the whole date hands nothing on in this pass. The same holds
//     when no node moved forward, when a spill fails, and after a stop.
//  4. What remains in the map is spilled, so that no record stays for the next date, and the date's
//     group of files is closed with its status.
#pragma once

#include "aggregate/url_hash_map.h"
#include "aggregate/visit_batch.h"
#include "cycle/interval.h"
#include "cycle/spill_writer.h"
#include "frame/configuration.h"
#include "input/loader_reader.h"
#include "input/read_buffers.h"
#include "merge/disk_temp_file_list.h"
#include "merge/mem_file_list.h"
#include "storage/status.h"
#include "tree/period.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine {

class UrlStat {
public:
    // The settings outlive the object, the roots in them fixed.
    explicit UrlStat(const Configuration& configuration)
        : m_configuration(configuration), m_diskTempFileList(configuration) {}
    ~UrlStat();
    UrlStat(const UrlStat&) = delete;
    UrlStat& operator=(const UrlStat&) = delete;

    [[nodiscard]] int init();
    // One cycle of the account whose path is given. 0 when it ended normally or stopped on request,
    // -1 on failure.
    [[nodiscard]] int run(const std::string& account);

    // ---- stages; each 0 or -1, and 0 after a stop
    // New log data into new-day files, and on its interval new-day files into day files.
    [[nodiscard]] int daycrcsort(const std::string& account);
    [[nodiscard]] int daycrcsortnew(const std::string& account);
    // The new log data of one date, in eight digits, into its next new-day file. As above; 1 when
    // some of it could not be read, which waits as it was.
    [[nodiscard]] int readDate(const std::string& account, const std::string& date);
    // All new-day files into the day files of their dates.
    [[nodiscard]] int new2Daycrcsort(const std::string& account);
    // New-day files into week files; into month files, after which they are deleted. The first time
    // every week (month) file is compared with the day files.
    [[nodiscard]] int weekcrcsort(const std::string& account);
    [[nodiscard]] int moncrcsort(const std::string& account);

    // Counts one visit, of a host that is not empty. The map is spilled first when its budget would
    // be crossed. 0 or -1; after a stop the visit is not counted and the result is 0.
    [[nodiscard]] int dealOneUrlRecord(const Visit& visit);
    // Counts the visits of a delivered record stream. 0 or -1.
    [[nodiscard]] int dealOneUserBuffer(ByteView stream);

private:
    [[nodiscard]] std::string accountDirectory() const;
    [[nodiscard]] int makeDirectoriesDurable() const;
    [[nodiscard]] int mergeTemporaries();
    [[nodiscard]] int runPeriods(Period period, bool& compared) const;

    // ---- a date's logs
    [[nodiscard]] int countLogs(std::vector<DayStatus>& days);
    [[nodiscard]] int createTempFile(DayStatus& status);
    [[nodiscard]] int readNodes(DayStatus& status, bool& moved);
    [[nodiscard]] int dealOneDevice(DayStatus& status, size_t index);
    [[nodiscard]] int dealAllDatFile(LoaderReader& reader);
    [[nodiscard]] int dealBatch(VisitBatch& visits);
    void dropDate();

    // ---- the map
    [[nodiscard]] int writeHashMap(int writeAll);
    [[nodiscard]] int spill(bool all);
    [[nodiscard]] static Spared reserveByPercent(size_t keep, std::span<KeyedRecord>& records);

    const Configuration& m_configuration;
    bool m_weeksCompared = false; // with all day files, by this process
    bool m_monthsCompared = false;
    Interval m_dayMerge;
    Interval m_weekMonthMerge;
    ReadBuffers* m_buffers = nullptr;
    MemFileList m_memFileList;
    DiskTempFileList m_diskTempFileList;
    uint64_t m_hashMemory = 0; // budget of the map in bytes

    std::string m_account; // path of the account that is run
    UrlHashMap m_map;
    LoaderReader m_reader;
    DayStatus* m_dayStatus = nullptr; // of the date being read
    uint64_t m_visits = 0;            // counted since the date was begun
    bool m_spillFailed = false;       // the date has lost records and hands nothing on
    bool m_logsLeft = false;          // a node of this pass could not be read
    SpillWriter m_spill{m_configuration, m_memFileList, m_diskTempFileList};
};

} // namespace kestrine
