#include "top_lists.h"

#include "bytes_text.h"
#include "checked_file.h"
#include "platform/platform.h"
#include "topn/top_url_record.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine::viewer {

namespace {

bool areEqual(const UrlRecordView& a, const UrlRecordView& b) {
    return a.key == b.key && a.count == b.count && a.type == b.type && a.url == b.url;
}

std::string described(const UrlRecordView& record) {
    return asciiText(record.url) + " with visits " + std::to_string(record.count);
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
            add("place " + std::to_string(place + 1) + " belongs to " +
                described(m_expected[place]->view()) + ", the list says " + described(record));
        }
    }
    void add(const std::string& text) { m_faults.push_back({m_path, text}); }

    std::string m_path;
    const std::vector<UrlRecordPtr>& m_expected;
    std::vector<ListFault>& m_faults;
    size_t m_next = 0;
    bool m_equal = true;
};

// Lists of types that the file does not have.
void findStrangers(const std::string& directory, const Lists& expected,
                   std::vector<ListFault>& faults) {
    std::vector<FindEntry> entries;
    if (Util::listEntries(names::join(directory, "*.top"), entries, KESTRINE_HERE) != 0) {
        faults.push_back({directory, "cannot be listed"});
    }
    std::ranges::sort(entries, {}, &FindEntry::name);
    for (const FindEntry& entry : entries) {
        if (!expected.contains(entry.name)) {
            faults.push_back(
                {names::join(directory, entry.name), "the file has no host of this type"});
        }
    }
}

} // namespace

ListRecount::ListRecount() : m_all(TopUrlRecord::g_listLength) {}

void ListRecount::push(const UrlRecordView& record) {
    m_all.push(record);
    if (m_last == nullptr || m_last->first != record.type) {
        m_last = &*m_types.try_emplace(record.type, TopUrlRecord::g_listLength).first;
    }
    m_last->second.push(record);
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
