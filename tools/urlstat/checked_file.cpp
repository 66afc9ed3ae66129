#include "checked_file.h"
#include "frame/buffer.h"
#include "storage/status_frame.h"
#include "storage/url_key.h"
#include "tree/names.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace kestrine::viewer {

namespace {

constexpr uint64_t g_faultsReported = 5;
constexpr int64_t g_endPositionSize = 8;

// Reads the frame of the file's status record, found through the last 8 bytes.
bool readStatusFrame(const std::string& path, uint64_t& checksum, Buffer& body) {
    const std::unique_ptr<File> file = platform().open(path, OpenMode::Read);
    std::array<uint8_t, g_endPositionSize> bytes{};
    const int64_t end = file ? file->size() - g_endPositionSize : -1;
    if (end < 0 || file->seek(end) != 0 || file->read(bytes) != g_endPositionSize) {
        return false;
    }
    const auto start = loadLittle<int64_t>(bytes.data());
    return start >= 0 && start <= end && file->seek(start) == 0 &&
           readStatusRecord(*file, end - start, checksum, body) == 0;
}

// Whether the number of entries that the body names is what its length gives.
bool lengthFits(const Buffer& body, FileKind kind) {
    const bool day = kind != FileKind::WeekMonth;
    const size_t head = day ? 16 : 12;
    const size_t entry = day ? 272 : 264;
    return body.size() >= head &&
           head + entry * loadLittle<uint32_t>(body.data() + head - 4) == body.size();
}

} // namespace

FileKind kindOf(std::string_view path) {
    const std::string_view name = path.substr(path.find_last_of("/\\") + 1);
    const auto contains = [name](Period period) {
        return name.find(names::formalName(period)) != std::string_view::npos;
    };
    if (contains(Period::Week) || contains(Period::Month)) {
        return FileKind::WeekMonth;
    }
    return names::withoutTemp(name).ends_with(".top") ? FileKind::TopList : FileKind::Day;
}

int CheckedFile::open(const std::string& path, FileKind kind) {
    m_path = path;
    m_kind = kind;
    if (m_file.open(path, OpenMode::Read) != 0) {
        return -1;
    }
    const uint32_t type = kind == FileKind::WeekMonth ? g_weekMonStatusType : g_dayStatusType;
    if (m_file.readStatus(type) == 0) {
        checkStatusRecord();
        return 0;
    }
    fault("the status cannot be read");
    // Without a status the blocks are taken to end where the file ends.
    return m_file.close() == 0 ? m_file.open(path, OpenMode::Read) : -1;
}

void CheckedFile::checkStatusRecord() {
    uint64_t checksum = 0;
    Buffer body;
    if (!readStatusFrame(m_path, checksum, body)) {
        fault("the status cannot be read again");
        return;
    }
    m_statusFits = lengthFits(body, m_kind);
    if (!m_statusFits) {
        fault(m_kind == FileKind::WeekMonth
                  ? "the status is none of a week or month file"
                  : "the status is none of a day file (--week-month reads the other kind)");
    } else if (checksum != urlKey(body.span())) {
        fault("the checksum of the status is wrong");
    }
}

void CheckedFile::readAll(const OnBlock& onBlock, const OnRecord& onRecord) {
    int result = 0;
    while ((result = m_file.readUrlRecordBlocks()) == 0) {
        onBlock(m_blocks, m_file.block().header());
        if (readBlock(onRecord) != 0) {
            break;
        }
        ++m_blocks;
    }
    if (result != 1) {
        fault("reading fails at block " + std::to_string(m_blocks));
    }
    checkTotal();
}

int CheckedFile::readBlock(const OnRecord& onRecord) {
    UrlRecordBlock& block = m_file.block();
    BlockHeader seen;
    while (block.hasCurrent()) {
        UrlRecordView record;
        if (block.getCurrentUrlRecord(record) != 0) {
            return -1;
        }
        checkRecord(record);
        seen.minKey = std::min(seen.minKey, record.key);
        seen.maxKey = std::max(seen.maxKey, record.key);
        seen.totalCount += static_cast<int64_t>(record.count);
        onRecord(record);
        block.advance(record);
    }
    const BlockHeader& header = block.header();
    if (seen.minKey != header.minKey || seen.maxKey != header.maxKey ||
        seen.totalCount != header.totalCount) {
        fault("the header of block " + std::to_string(m_blocks) + " does not fit its records");
    }
    return 0;
}

void CheckedFile::checkRecord(const UrlRecordView& record) {
    const bool inOrder =
        m_kind == FileKind::TopList
            ? record.count < m_lastCount || (record.count == m_lastCount && record.key > m_lastKey)
            : record.key > m_lastKey;
    if (m_records > 0 && !inOrder) {
        fault("record " + std::to_string(m_records) + " is out of order");
    }
    // The key of a host that was cut cannot be computed from what is left of it.
    if (record.url.size() < g_maxHostText && urlKey(asBytes(record.url)) != record.key) {
        fault("the key of record " + std::to_string(m_records) + " is not that of its host");
    }
    m_lastKey = record.key;
    m_lastCount = record.count;
    m_visits += record.count;
    ++m_records;
}

void CheckedFile::checkTotal() {
    uint64_t total = 0;
    if (const DayStatus* const day = dayStatus()) {
        total = day->totalCount();
    } else if (const WeekMonStatus* const weekMonth = weekMonStatus()) {
        total = static_cast<uint64_t>(weekMonth->totalCount());
    } else {
        return; // reported when it was opened
    }
    if (total != m_visits) {
        fault("the status tells of " + std::to_string(total) + " visits, the records of " +
              std::to_string(m_visits));
    }
}

void CheckedFile::fault(const std::string& text) {
    if (m_faults++ < g_faultsReported) {
        std::fprintf(stderr, "urlstat: %s: %s\n", m_path.c_str(), text.c_str());
    }
}

} // namespace kestrine::viewer
