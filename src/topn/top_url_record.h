// The most visited hosts of a day, week or month file: overall and per record type.
//
// The lists lie in "topn" beside the file: "all.top" and one "TYPE.top" per type, each a URL file
// whose records stand in descending count order (of equal counts the lower key first) and whose
// status has the one entry "just for test". They are replaced as a whole:
//
//   topn.temp.temp  being written, never complete
//   topn.temp       complete, not in place yet
//   topn            current
#pragma once

#include "aggregate/priority_queue.h"
#include "storage/url_file.h"

#include <cstdint>
#include <map>
#include <string>

namespace kestrine {

class TopUrlRecord {
public:
    static constexpr uint32_t g_listLength = 10000;

    TopUrlRecord() = default;
    ~TopUrlRecord();
    TopUrlRecord(const TopUrlRecord&) = delete;
    TopUrlRecord& operator=(const TopUrlRecord&) = delete;

    // Reads the file of the given status type and writes its lists into `directory`. 0 (also after
    // a stop, without new lists) or -1; a file found damaged is set aside and its backup brought
    // back. A kill leaves the old set, the complete new set, or none; the start-up check settles
    // it.
    [[nodiscard]] int createTop(uint32_t statusType, const std::string& directory,
                                const std::string& path);

private:
    using Queue = RecordQueue;

    [[nodiscard]] int readFile(UrlFile& file, uint32_t statusType, const std::string& path);
    [[nodiscard]] int fillOverallHeap();
    [[nodiscard]] int insertHeap(const UrlRecordView& record, Queue& queue);
    [[nodiscard]] int insertTypeHashMap(std::map<uint32_t, Queue>& queues,
                                        const UrlRecordView& record);
    [[nodiscard]] int writeOutTop(const std::string& directory);
    // 0; 1 after a stop, with a part of the lists; -1.
    [[nodiscard]] int writeAllLists(const std::string& directory);
    [[nodiscard]] int writeOutOneHeap(Queue& queue, const std::string& path);
    [[nodiscard]] int writeList(Queue& queue, const std::string& path);
    [[nodiscard]] static int setAside(const std::string& path);

    Queue m_all;
    std::map<uint32_t, Queue> m_types;
    int32_t m_copies = 0; // records held
};

} // namespace kestrine
