#include "storage/url_record.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace kestrine {

void UrlRecordView::store(uint8_t* bytes) const {
    storeLittle(bytes + recordAt::g_key, key);
    storeLittle(bytes + recordAt::g_count, count);
    storeLittle(bytes + recordAt::g_type, type);
    storeLittle(bytes + recordAt::g_urlLen, urlLen());
    uint8_t* text = bytes + recordAt::g_url;
    std::copy(url.begin(), url.end(), text);
    text[url.size()] = 0;
}

UrlRecordPtr makeUrlRecord(const UrlRecordView& view) {
    const std::string_view url = view.url.substr(0, g_maxHostText);
    const auto urlLen = static_cast<uint32_t>(url.size() + 1);
    void* memory = std::malloc(g_recordHeadSize + urlLen);
    if (memory == nullptr) {
        return nullptr;
    }
    UrlRecordPtr record(new (memory) UrlRecord{view.key, view.count, view.type, urlLen});
    char* text = static_cast<char*>(memory) + g_recordHeadSize;
    std::copy(url.begin(), url.end(), text);
    text[url.size()] = '\0';
    return record;
}

void FreeUrlRecord::operator()(UrlRecord* record) const {
    std::free(record);
}

} // namespace kestrine
