// The top lists beside a statistics file, compared with what the file's records say they must be.
#pragma once

#include "top_queue.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kestrine::viewer {

// The records of each list by the name of its file.
using Lists = std::map<std::string, std::vector<UrlRecordPtr>>;

// The lists that the records of one file make. It holds no more than the lists do.
class ListRecount {
public:
    ListRecount();
    void push(const UrlRecordView& record);
    // Empties the recount.
    [[nodiscard]] Lists take();

private:
    TopQueue m_all;
    std::map<uint32_t, TopQueue> m_types;
    std::pair<const uint32_t, TopQueue>* m_last = nullptr; // records of one type often follow
};

struct ListFault {
    std::string path;
    std::string text;
};

// What is wrong with the lists of a directory, in the order of their names. Nothing when the
// directory is not there, or goes while it is looked at.
[[nodiscard]] std::vector<ListFault> compareLists(const std::string& directory,
                                                  const Lists& expected);

} // namespace kestrine::viewer
