// A statistics file or top list that is read from end to end and checked on the way.
#pragma once

#include "block_walk.h"
#include "storage/url_key.h"
#include "storage/verify.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace kestrine::viewer {

enum class FileKind {
    TopList,   // records by count; day status
    Day,       // day, new-day and temporary files: records by key; day status
    WeekMonth, // records by key; week and month status
};

// The kind by the file's name, which may carry further letters before and behind.
[[nodiscard]] FileKind kindOf(std::string_view path);

// Every fault is counted. Checked beyond what UrlFile itself does: checksum and length of every
// status, totals and key ranges of blocks, the order of records over the file, the key of each
// host, the total in the status.
class CheckedFile {
public:
    using OnFault = std::function<void(const std::string& text)>;

    // Every fault goes to `onFault`; without it the first ones are reported on the standard error
    // stream.
    explicit CheckedFile(OnFault onFault = {}) : m_onFault(std::move(onFault)) {}
    // Opens the file and reads its status. 0 also when the status is damaged, which is a fault: the
    // records may be readable all the same. -1 when the file cannot be opened.
    [[nodiscard]] int open(const std::string& path, FileKind kind);
    // Hands out everything that can be read, each block before its records:
    // onBlock(uint64_t number, const BlockHeader&), onRecord(const UrlRecordView&).
    template <typename OnBlock, typename OnRecord>
    void readAll(const OnBlock& onBlock, const OnRecord& onRecord) {
        while (nextBlock()) {
            onBlock(m_blocks, m_file.block().header());
            if (!readBlock(onRecord)) {
                break;
            }
        }
        checkEnd();
    }

    [[nodiscard]] FileKind kind() const { return m_kind; }
    // Null when it cannot be read, or is of the other kind.
    [[nodiscard]] const DayStatus* dayStatus() {
        return m_statusFits ? m_file.dayStatus() : nullptr;
    }
    [[nodiscard]] const WeekMonStatus* weekMonStatus() {
        return m_statusFits ? m_file.weekMonStatus() : nullptr;
    }
    // What was read.
    [[nodiscard]] uint64_t blocks() const { return m_blocks; }
    [[nodiscard]] uint64_t records() const { return m_records; }
    [[nodiscard]] uint64_t visits() const { return m_visits; }
    [[nodiscard]] uint64_t faults() const { return m_faults; }
    // A call of the system failed, which says nothing about the bytes.
    [[nodiscard]] bool callFailed() const { return m_callFailed; }
    // The exit code that follows; a damaged file is reported on the standard error stream.
    [[nodiscard]] int verdict() const;

private:
    // False at the end of the blocks, or of what can be read.
    [[nodiscard]] bool nextBlock();
    template <typename OnRecord>
    [[nodiscard]] bool readBlock(const OnRecord& onRecord) {
        BlockHeader seen;
        OrderCheck order = m_order; // in registers as long as nobody else sees it
        const auto check = [&](const UrlRecordView& record, size_t behind) {
            const bool inOrder = order.next(record);
            const bool hasKey = hasItsKey(record, behind);
            if (!inOrder || !hasKey) {
                tellOfRecord(m_records + static_cast<uint64_t>(seen.count), inOrder, hasKey);
            }
            onRecord(record);
        };
        const UrlRecordBlock& block = m_file.block();
        const bool whole = walkBlock(block.rawData(), block.header().count, seen, check);
        m_order = order;
        return endBlock(seen, whole);
    }
    // With so many bytes behind the record.
    [[nodiscard]] static bool hasItsKey(const UrlRecordView& record, size_t behind) {
        const ByteView host = asBytes(record.url);
        const uint64_t key = behind >= g_keyReadsOn ? urlKeyReadingOn(host) : urlKey(host);
        // That of a host that was cut cannot be computed from what is left of it.
        return key == record.key || record.url.size() >= g_maxHostText;
    }
    void tellOfRecord(uint64_t number, bool inOrder, bool hasKey);
    [[nodiscard]] bool endBlock(const BlockHeader& seen, bool whole);
    void checkEnd();
    void checkStatus();
    void checkTotal();
    void readFault(const std::string& what);
    void fault(const std::string& text);

    OnFault m_onFault;
    std::string m_path;
    FileKind m_kind = FileKind::Day;
    UrlFile m_file;
    OrderCheck m_order{RecordOrder::Key};
    bool m_statusRead = false;
    bool m_readToEnd = false; // all blocks
    bool m_statusFits = false;
    bool m_callFailed = false;
    uint64_t m_blocks = 0;
    uint64_t m_records = 0;
    uint64_t m_visits = 0;
    uint64_t m_faults = 0;
};

} // namespace kestrine::viewer
