// The top lists beside a statistics file, compared with what the file's records say they must be.
#pragma once

#include "top_queue.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
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
};

// The lists of a directory, read before their file, whose records are then held against them one by
// one: a list is right when it has each record that is not below its last one, and no other. It
// says yes or no only; what is wrong with which list, a recount tells.
class ListsInPlace {
public:
    explicit ListsInPlace(const std::string& directory);
    // A record of the file, in the file's order.
    void check(const UrlRecordView& record) {
        if (m_isThere) {
            m_all.check(record);
            typeList(record.type).check(record);
        }
    }
    // Whether every list is right, after the last record; also when there are none.
    [[nodiscard]] bool fit() const;

private:
    class List {
    public:
        void read(const std::string& path);
        void check(const UrlRecordView& record) {
            if (record.key >= m_nextKey || isAboveLeast(record)) {
                expect(record);
            }
        }
        [[nodiscard]] bool fits() const { return m_right && m_next == m_byKey.size(); }

    private:
        [[nodiscard]] bool isAboveLeast(const UrlRecordView& record) const {
            return record.count > m_leastCount ||
                   (record.count == m_leastCount && record.key < m_leastKey);
        }
        void goTo(size_t next);
        void expect(const UrlRecordView& record);

        std::vector<UrlRecordPtr> m_byKey;
        size_t m_next = 0;
        uint64_t m_nextKey = UINT64_MAX;
        // Every record above this belongs into the list: its last one, or without one, nothing.
        uint64_t m_leastCount = 0;
        uint64_t m_leastKey = 0;
        bool m_right = false;
    };

    // A lookup for every record of every file: most find their list in one of a few places.
    struct Place {
        uint32_t type = 0;
        List* list = nullptr;
    };
    List& typeList(uint32_t type) {
        Place& place = m_places[type % m_places.size()];
        if (place.list == nullptr || place.type != type) {
            place = {type, &m_types[type]}; // one that is not there is not right
        }
        return *place.list;
    }

    bool m_isThere;
    bool m_namesFit = false;
    List m_all;
    std::map<uint32_t, List> m_types;
    std::array<Place, 16> m_places;
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
