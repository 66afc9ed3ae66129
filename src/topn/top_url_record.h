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

#include "aggregate/most_visited.h"
#include "storage/url_file.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kestrine {

class TopUrlRecord {
public:
    static constexpr uint32_t g_listLength = 10000;

    TopUrlRecord() = default;
    TopUrlRecord(const TopUrlRecord&) = delete;
    TopUrlRecord& operator=(const TopUrlRecord&) = delete;

    // Reads the file of the given status type and writes its lists into `directory`. 0 (also after
    // a stop, without new lists) or -1; a file found damaged is set aside and its backup brought
    // back. A kill leaves the old set, the complete new set, or none; the start-up check settles
    // it.
    [[nodiscard]] int createTop(uint32_t statusType, const std::string& directory,
                                const std::string& path);

private:
    [[nodiscard]] int readFile(UrlFile& file, uint32_t statusType, const std::string& path);
    [[nodiscard]] int insertTypeHashMap(const UrlRecordView& record);
    [[nodiscard]] static int insertHeap(const UrlRecordView& record, MostVisited& queue);
    [[nodiscard]] int writeOutTop(const std::string& directory);
    // 0; 1 after a stop, with a part of the lists; -1.
    [[nodiscard]] int writeAllLists(const std::string& directory);
    // `records` are those that were written.
    [[nodiscard]] static int writeOutOneHeap(MostVisited& queue, const std::string& path,
                                             std::vector<UrlRecordView>& records);
    [[nodiscard]] static int writeList(const std::vector<UrlRecordView>& records,
                                       const std::string& path);
    [[nodiscard]] static int setAside(const std::string& path);

    std::map<uint32_t, MostVisited> m_types;
};

} // namespace kestrine
