#include "storage/url_record.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace kestrine {

void UrlRecordView::store(uint8_t* bytes) const {
    storeLittle(bytes + recordAt::g_key, key);
    storeLittle(bytes + recordAt::g_count, count);
    storeLittle(bytes + recordAt::g_type, type);
    storeLittle(bytes + recordAt::g_urlLen, urlLen());
    uint8_t* text = bytes + recordAt::g_url;
    std::memcpy(text, url.data(), url.size()); // a loop over bytes is not always made one
    text[url.size()] = 0;
}

UrlRecordPtr makeUrlRecord(const UrlRecordView& view) {
    // Cut for storing only; the key stays that of the whole text.
    const std::string_view url = view.url.substr(0, g_maxHostText);
    const auto urlLen = static_cast<uint32_t>(url.size() + 1);
    // Head and text in one piece, which FreeUrlRecord gives back.
    void* memory = std::malloc(g_recordHeadSize + urlLen);
    if (memory == nullptr) {
        return nullptr;
    }
    UrlRecordPtr record(new (memory) UrlRecord{view.key, view.count, view.type, urlLen});
    char* text = static_cast<char*>(memory) + g_recordHeadSize;
    std::memcpy(text, url.data(), url.size());
    text[url.size()] = '\0';
    return record;
}

void FreeUrlRecord::operator()(UrlRecord* record) const {
    std::free(record);
}

} // namespace kestrine
