#include "checked_file.h"

#include "failure.h"
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

bool CheckedFile::nextBlock() {
    const int result = m_file.readUrlRecordBlocks();
    m_readToEnd = result == 1;
    return result == 0;
}

void CheckedFile::tellOfRecord(uint64_t number, bool inOrder, bool hasKey) {
    if (!inOrder) {
        fault("record " + std::to_string(number) + " is out of order");
    }
    if (!hasKey) {
        fault("the key of record " + std::to_string(number) + " is not that of its host");
    }
}

// With what was seen of its records. Not whole, it is the last one, and false.
bool CheckedFile::endBlock(const BlockHeader& seen, bool whole) {
    m_records += static_cast<uint64_t>(seen.count);
    m_visits += static_cast<uint64_t>(seen.totalCount); // wraps, as the writer's does
    if (!whole) {
        m_file.setBroken();
        return false;
    }
    if (!seen.agrees(m_file.block().header())) {
        fault("the header of block " + std::to_string(m_blocks) + " does not fit its records");
    }
    ++m_blocks;
    return true;
}

void CheckedFile::checkEnd() {
    // Without a status the end of the blocks is not known: whatever follows them fails to be read.
    if (!m_readToEnd && m_statusRead) {
        readFault("block " + std::to_string(m_blocks));
    } else {
        checkTotal();
    }
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
