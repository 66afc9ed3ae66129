#include "top_lists.h"

#include "bytes_text.h"
#include "checked_file.h"
#include "platform/platform.h"
#include "topn/top_url_record.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace kestrine::viewer {

namespace {

bool areEqual(const UrlRecordView& a, const UrlRecordView& b) {
    return a.key == b.key && a.count == b.count && a.type == b.type && a.url == b.url;
}

std::string described(const UrlRecordView& record) {
    constexpr size_t longest = 40; // columns; a line that nobody can read helps nobody
    std::string host = asciiText(record.url);
    if (host.size() > longest) {
        host = host.substr(0, longest - 3) + "...";
    }
    return host + " " + std::to_string(record.count);
}

// The first difference says enough: those behind it mostly follow from it.
class ListComparison {
public:
    ListComparison(std::string path, const std::vector<UrlRecordPtr>& expected,
                   std::vector<ListFault>& faults)
        : m_path(std::move(path)), m_expected(expected), m_faults(faults) {}

    void compare() {
        CheckedFile list([this](const std::string& text) { add(text); });
        if (list.open(m_path, FileKind::TopList) != 0) {
            add("is missing");
            return;
        }
        list.readAll([](uint64_t, const BlockHeader&) {},
                     [this](const UrlRecordView& record) { next(record); });
        if (m_equal && m_next != m_expected.size() && list.faults() == 0) {
            add("holds " + std::to_string(m_next) + " hosts, the file has " +
                std::to_string(m_expected.size()) + " for it");
        }
    }

private:
    void next(const UrlRecordView& record) {
        const size_t place = m_next++;
        if (m_equal && place < m_expected.size() && !areEqual(record, m_expected[place]->view())) {
            m_equal = false;
            add("place " + std::to_string(place + 1) + ": " + described(record) + ", rightly " +
                described(m_expected[place]->view()));
        }
    }
    void add(const std::string& text) { m_faults.push_back({m_path, text}); }

    std::string m_path;
    const std::vector<UrlRecordPtr>& m_expected;
    std::vector<ListFault>& m_faults;
    size_t m_next = 0;
    bool m_equal = true;
};

// Names of the lists in a directory.
std::vector<FindEntry> listsIn(const std::string& directory, bool& listed) {
    std::vector<FindEntry> entries;
    listed = Util::listEntries(names::join(directory, "*.top"), entries, KESTRINE_HERE) == 0;
    std::ranges::sort(entries, {}, &FindEntry::name);
    return entries;
}

// Lists of types that the file does not have.
void findStrangers(const std::string& directory, const Lists& expected,
                   std::vector<ListFault>& faults) {
    bool listed = false;
    const std::vector<FindEntry> entries = listsIn(directory, listed);
    if (!listed) {
        faults.push_back({directory, "cannot be listed"});
    }
    for (const FindEntry& entry : entries) {
        if (!expected.contains(entry.name)) {
            faults.push_back(
                {names::join(directory, entry.name), "the file has no host of this type"});
        }
    }
}

} // namespace

ListsInPlace::ListsInPlace(const std::string& directory) : m_isThere(platform().exists(directory)) {
    const std::string all = names::topAllFile(directory);
    bool listed = true;
    for (const FindEntry& entry :
         m_isThere ? listsIn(directory, listed) : std::vector<FindEntry>()) {
        const std::string path = names::join(directory, entry.name);
        uint32_t type = 0;
        const char* const end = entry.name.data() + entry.name.size();
        if (path == all) {
            m_all.read(path);
        } else if (std::from_chars(entry.name.data(), end, type).ec == std::errc()) {
            m_types[type].read(path);
        } else {
            listed = false; // a recount tells of it
        }
    }
    m_namesFit = listed;
}

void ListsInPlace::List::read(const std::string& path) {
    CheckedFile file([](const std::string&) {});
    if (file.open(path, FileKind::TopList) != 0) {
        return;
    }
    file.readAll([](uint64_t, const BlockHeader&) {},
                 [this](const UrlRecordView& record) {
                     if (UrlRecordPtr copy = makeUrlRecord(record)) {
                         m_byKey.push_back(std::move(copy));
                     }
                 });
    // Cut or damaged, it is the recount's.
    m_right = file.faults() == 0 && !m_byKey.empty() && m_byKey.size() == file.records() &&
              m_byKey.size() <= TopUrlRecord::g_listLength;
    if (m_byKey.size() == TopUrlRecord::g_listLength) {
        m_leastCount = m_byKey.back()->count;
        m_leastKey = m_byKey.back()->key;
    }
    std::ranges::sort(m_byKey, {}, [](const UrlRecordPtr& record) { return record->key; });
    goTo(0);
}

void ListsInPlace::List::goTo(size_t next) {
    m_next = next;
    m_nextKey = next < m_byKey.size() ? m_byKey[next]->key : UINT64_MAX;
}

void ListsInPlace::List::expect(const UrlRecordView& record) {
    if (m_next < m_byKey.size() && areEqual(record, m_byKey[m_next]->view())) {
        goTo(m_next + 1);
    } else if (m_next < m_byKey.size() || isAboveLeast(record)) {
        m_right = false;
    }
}

bool ListsInPlace::fit() const {
    return !m_isThere ||
           (m_namesFit && m_all.fits() &&
            std::ranges::all_of(m_types, [](const auto& list) { return list.second.fits(); }));
}

ListRecount::ListRecount() : m_all(TopUrlRecord::g_listLength) {}

void ListRecount::push(const UrlRecordView& record) {
    m_all.push(record);
    m_types.try_emplace(record.type, TopUrlRecord::g_listLength).first->second.push(record);
}

Lists ListRecount::take() {
    Lists lists;
    lists[std::string(names::lastComponent(names::topAllFile("")))] = m_all.take();
    for (auto& [type, queue] : m_types) {
        lists[std::string(names::lastComponent(names::topFile("", type)))] = queue.take();
    }
    return lists;
}

std::vector<ListFault> compareLists(const std::string& directory, const Lists& expected) {
    std::vector<ListFault> faults;
    if (!platform().exists(directory)) {
        return faults;
    }
    for (const auto& [name, records] : expected) {
        ListComparison(names::join(directory, name), records, faults).compare();
    }
    findStrangers(directory, expected, faults);
    if (!platform().exists(directory)) {
        faults.clear(); // a set goes as a whole
    }
    return faults;
}

} // namespace kestrine::viewer
