// One host with its visits, in memory and inside a block.
#pragma once

#include "frame/bytes.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace kestrine {

// Where the fields of a record stand.
namespace recordAt {
constexpr size_t g_key = 0;     // 8 bytes: key of the whole host text
constexpr size_t g_count = 8;   // 8: visits, 1 to 2^63 - 1 (the sum of a block's counts is signed)
constexpr size_t g_type = 16;   // 4: type word of the log record that came first
constexpr size_t g_urlLen = 20; // 4: length of the text with its terminating zero, 1 to 260
constexpr size_t g_url = 24;    // host text (at most 259 bytes) and a zero
} // namespace recordAt

constexpr size_t g_recordHeadSize = recordAt::g_url;
constexpr size_t g_maxHostText = 259; // longer hosts keep their first 259 bytes
constexpr uint64_t g_maxCount = INT64_MAX;
constexpr size_t g_maxRecordSize = g_recordHeadSize + g_maxHostText + 1;

// What a record may count, wherever it is read or written.
[[nodiscard]] constexpr bool isCount(uint64_t count) {
    return count > 0 && count <= g_maxCount;
}

// A record that lies elsewhere; `url` is the text without its zero.
struct UrlRecordView {
    uint64_t key = 0;
    uint64_t count = 0;
    uint32_t type = 0;
    std::string_view url;

    [[nodiscard]] uint32_t urlLen() const { return static_cast<uint32_t>(url.size()) + 1; }
    [[nodiscard]] size_t size() const { return g_recordHeadSize + urlLen(); }
    // Writes the `size()` bytes of the record.
    void store(uint8_t* bytes) const;
};

// Decodes the record at the start of `bytes`. 0, or -1 when the bytes do not hold a whole record
// with a text of 1 to 260 bytes that ends in a zero.
[[nodiscard]] inline int parseRecord(ByteView bytes, UrlRecordView& record) {
    if (bytes.size() < g_recordHeadSize) {
        return -1;
    }
    const ByteView text = bytes.subspan(g_recordHeadSize);
    const auto urlLen = loadLittle<uint32_t>(bytes.data() + recordAt::g_urlLen);
    if (urlLen == 0 || urlLen > g_maxHostText + 1 || urlLen > text.size() ||
        text[urlLen - 1] != 0) {
        return -1;
    }
    record.key = loadLittle<uint64_t>(bytes.data() + recordAt::g_key);
    record.count = loadLittle<uint64_t>(bytes.data() + recordAt::g_count);
    record.type = loadLittle<uint32_t>(bytes.data() + recordAt::g_type);
    record.url = asText(text.first(urlLen - 1));
    return 0;
}

// A record of its own, one allocation of 25 + text length bytes.
struct UrlRecord {
    uint64_t key;
    uint64_t count;
    uint32_t type;
    uint32_t urlLen;
    // followed by urlLen bytes of text with its zero

    [[nodiscard]] std::string_view url() const {
        return {static_cast<const char*>(static_cast<const void*>(this + 1)), urlLen - 1};
    }
    [[nodiscard]] UrlRecordView view() const { return {key, count, type, url()}; }
    // What the record costs of a memory budget.
    [[nodiscard]] size_t size() const { return g_recordHeadSize + urlLen; }
};
static_assert(sizeof(UrlRecord) == g_recordHeadSize);

struct FreeUrlRecord {
    void operator()(UrlRecord* record) const;
};
using UrlRecordPtr = std::unique_ptr<UrlRecord, FreeUrlRecord>;

// A new record with the first 259 bytes of the view's text; null when memory is not to be had.
[[nodiscard]] UrlRecordPtr makeUrlRecord(const UrlRecordView& view);

} // namespace kestrine
