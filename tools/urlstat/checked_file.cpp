#include "checked_file.h"

#include "failure.h"
#include "storage/url_key.h"
#include "tree/names.h"

#include <cstdio>

namespace kestrine::viewer {

namespace {

constexpr uint64_t g_faultsReported = 5;

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
    m_order = OrderCheck(kind == FileKind::TopList ? RecordOrder::Count : RecordOrder::Key);
    if (m_file.open(path, OpenMode::Read) != 0) {
        return -1;
    }
    const uint32_t type = kind == FileKind::WeekMonth ? g_weekMonStatusType : g_dayStatusType;
    if (m_file.readStatus(type) == 0) {
        m_statusRead = true;
        checkStatus();
        return 0;
    }
    readFault("the status");
    // Without a status the blocks are taken to end where the file ends.
    return m_file.close() == 0 ? m_file.open(path, OpenMode::Read) : -1;
}

void CheckedFile::checkStatus() {
    const bool weekMonth = m_kind == FileKind::WeekMonth;
    m_statusFits =
        weekMonth ? m_file.weekMonStatus()->lengthFits() : m_file.dayStatus()->lengthFits();
    if (!m_statusFits) {
        fault(weekMonth ? "the status is none of a week or month file"
                        : "the status is none of a day file");
    } else if (weekMonth && !m_file.weekMonStatus()->checksumFits()) {
        fault("the checksum of the status is wrong");
    }
}

void CheckedFile::readAll(const OnBlock& onBlock, const OnRecord& onRecord) {
    int result = 0;
    while ((result = m_file.readUrlRecordBlocks()) == 0) {
        onBlock(m_blocks, m_file.block().header());
        if (readBlock(onRecord) != 0) {
            m_file.setBroken();
            break;
        }
        ++m_blocks;
    }
    // Without a status the end of the blocks is not known: whatever follows them fails to be read.
    if (result != 1 && m_statusRead) {
        readFault("block " + std::to_string(m_blocks));
    } else {
        checkTotal();
    }
}

// The whole block at once: every record of every file comes by here.
int CheckedFile::readBlock(const OnRecord& onRecord) {
    const BlockHeader& header = m_file.block().header();
    ByteView rest = m_file.block().rawData();
    BlockHeader seen;
    UrlRecordView record;
    while (seen.count < header.count) {
        if (parseRecord(rest, record) != 0 || !isCount(record.count)) {
            return -1;
        }
        rest = rest.subspan(record.size());
        checkRecord(record);
        seen.add(record);
        onRecord(record);
    }
    if (!rest.empty()) {
        return -1; // a count that is too low would hide records
    }
    if (!seen.agrees(header)) {
        fault("the header of block " + std::to_string(m_blocks) + " does not fit its records");
    }
    return 0;
}

void CheckedFile::checkRecord(const UrlRecordView& record) {
    if (!m_order.next(record)) {
        fault("record " + std::to_string(m_records) + " is out of order");
    }
    // The key of a host that was cut cannot be computed from what is left of it.
    if (record.url.size() < g_maxHostText && urlKey(asBytes(record.url)) != record.key) {
        fault("the key of record " + std::to_string(m_records) + " is not that of its host");
    }
    m_visits += record.count;
    ++m_records;
}

void CheckedFile::checkTotal() {
    const uint64_t total = m_file.statusTotal();
    if (m_statusFits && total != m_visits) { // otherwise reported when it was opened
        fault("the status tells of " + std::to_string(total) + " visits, the records of " +
              std::to_string(m_visits));
    }
}

int CheckedFile::verdict() const {
    if (m_faults == 0) {
        return 0;
    }
    std::fprintf(stderr, "urlstat: %s: is damaged, faults: %llu\n", m_path.c_str(),
                 static_cast<unsigned long long>(m_faults));
    return g_dataWrong;
}

void CheckedFile::readFault(const std::string& what) {
    m_callFailed = m_callFailed || !m_file.broken();
    fault(what + (m_file.broken() ? " is damaged" : " cannot be read"));
}

void CheckedFile::fault(const std::string& text) {
    if (m_onFault) {
        ++m_faults;
        m_onFault(text);
    } else if (m_faults++ < g_faultsReported) {
        std::fprintf(stderr, "urlstat: %s: %s\n", m_path.c_str(), text.c_str());
    }
}

} // namespace kestrine::viewer
