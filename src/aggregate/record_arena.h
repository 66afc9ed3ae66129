// Records packed one after another, in the form in which blocks store them (storage/url_record.h).
//
// They lie in chunks that come from the system one by one and go back to it as soon as they are
// empty. No record straddles two chunks. Records of one map cost nothing beyond their own bytes but
// the rest of each chunk.
#pragma once

#include "platform/pages.h"
#include "storage/url_record.h"

#include <cstdint>
#include <vector>

namespace kestrine {

class RecordArena {
public:
    // Where a record lies; valid until the arena is compacted or cleared.
    using Ref = uint32_t;

    // Stores a record, with the first 259 bytes of its text. 0, or -1 without memory.
    [[nodiscard]] int add(const UrlRecordView& record, Ref& ref);

    [[nodiscard]] const uint8_t* at(Ref ref) const {
        return m_chunks[ref >> g_offsetBits].data() + (ref & (g_chunkSize - 1));
    }
    [[nodiscard]] uint64_t keyAt(Ref ref) const {
        return loadLittle<uint64_t>(at(ref) + recordAt::g_key);
    }
    [[nodiscard]] UrlRecordView viewAt(Ref ref) const {
        const uint8_t* const bytes = at(ref);
        const auto urlLen = loadLittle<uint32_t>(bytes + recordAt::g_urlLen);
        return {loadLittle<uint64_t>(bytes + recordAt::g_key),
                loadLittle<uint64_t>(bytes + recordAt::g_count),
                loadLittle<uint32_t>(bytes + recordAt::g_type),
                asText(ByteView(bytes + recordAt::g_url, urlLen - 1))};
    }
    void addVisit(Ref ref) {
        uint8_t* const count =
            m_chunks[ref >> g_offsetBits].data() + (ref & (g_chunkSize - 1)) + recordAt::g_count;
        storeLittle(count, loadLittle<uint64_t>(count) + 1);
    }

    // Calls `visit(ref, record)` for every record, in the order of their places.
    template <typename Visit>
    void forEach(Visit visit) const {
        for (size_t chunk = 0; chunk < m_chunks.size(); ++chunk) {
            for (size_t offset = 0; offset < m_used[chunk];) {
                const Ref ref = refOf(chunk, offset);
                const UrlRecordView record = viewAt(ref);
                visit(ref, record);
                offset += record.size();
            }
        }
    }
    // Drops all records but those for which `keep(record)` is true. What stays moves together in
    // place; a record never moves forward, so none is overwritten before it was looked at.
    template <typename Keep>
    void compact(Keep keep) {
        size_t toChunk = 0;
        size_t to = 0;
        for (size_t chunk = 0; chunk < m_chunks.size(); ++chunk) {
            const size_t used = m_used[chunk];
            for (size_t offset = 0; offset < used;) {
                const UrlRecordView record = viewAt(refOf(chunk, offset));
                const size_t size = record.size();
                if (keep(record)) {
                    if (to + size > g_chunkSize) {
                        m_used[toChunk++] = to;
                        to = 0;
                    }
                    move(chunk, offset, toChunk, to, size);
                    to += size;
                }
                offset += size;
            }
        }
        cutTo(toChunk, to);
    }
    void clear() { cutTo(0, 0); }

private:
    static constexpr uint32_t g_offsetBits = 20;
    static constexpr size_t g_chunkSize = size_t{1} << g_offsetBits;
    static constexpr size_t g_mostChunks = size_t{1} << (32 - g_offsetBits);

    [[nodiscard]] static Ref refOf(size_t chunk, size_t offset) {
        return static_cast<Ref>((chunk << g_offsetBits) | offset);
    }
    [[nodiscard]] int addChunk();
    void move(size_t chunk, size_t offset, size_t toChunk, size_t to, size_t size);
    void cutTo(size_t chunk, size_t used);

    std::vector<PageArray<uint8_t>> m_chunks;
    std::vector<size_t> m_used; // bytes of each chunk
};

} // namespace kestrine
