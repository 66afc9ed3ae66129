#include "storage/verify.h"

#include "frame/log.h"
#include "frame/run_flag.h"

#include <algorithm>

namespace kestrine {

int VerifyingReader::readOneRecord(UrlRecordView& record) {
    const int ret = m_file.readOneRecord(record);
    if (ret < 0) {
        return -1;
    }
    if (ret == 1) {
        return m_file.statusTotal() == m_total
                   ? 1
                   : breakFile("total of the status does not fit the records");
    }
    if (!follows(record)) {
        return breakFile("records not in order");
    }
    add(record);
    if (!m_file.block().hasCurrent() && !fitsHeader()) {
        return breakFile("header of a block does not fit its records");
    }
    return 0;
}

bool VerifyingReader::follows(const UrlRecordView& record) const {
    if (m_records == 0) {
        return true;
    }
    if (m_order == RecordOrder::Count && record.count != m_lastCount) {
        return record.count < m_lastCount;
    }
    return record.key > m_lastKey;
}

// Sums wrap, as those of the writer do.
void VerifyingReader::add(const UrlRecordView& record) {
    m_lastKey = record.key;
    m_lastCount = record.count;
    ++m_records;
    m_total += record.count;
    m_block.minKey = std::min(m_block.minKey, record.key);
    m_block.maxKey = std::max(m_block.maxKey, record.key);
    m_block.totalCount =
        static_cast<int64_t>(static_cast<uint64_t>(m_block.totalCount) + record.count);
}

// At the end of a block.
bool VerifyingReader::fitsHeader() {
    const BlockHeader& header = m_file.block().header();
    const bool fits = header.minKey == m_block.minKey && header.maxKey == m_block.maxKey &&
                      header.totalCount == m_block.totalCount;
    m_block = {};
    return fits;
}

int VerifyingReader::breakFile(const char* what) {
    LOG_ERROR("%s: %s, set broken flag", m_file.path().c_str(), what);
    m_file.setBroken();
    return -1;
}

int verifyUrlFile(const std::string& path, uint32_t statusType, RecordOrder order, FileSums* sums) {
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    if (file.readStatus(statusType) != 0) {
        return file.broken() ? 1 : LOG_FAIL("read status from %s fail", path.c_str());
    }
    VerifyingReader reader(file, order);
    UrlRecordView record;
    std::set<uint32_t> types;
    int ret = 0;
    while ((ret = reader.readOneRecord(record)) == 0) {
        if (stopRequested()) {
            return 2;
        }
        if (sums != nullptr) {
            types.insert(record.type);
        }
    }
    if (ret < 0) {
        return file.broken() ? 1 : LOG_FAIL("read %s fail", path.c_str());
    }
    if (sums != nullptr) {
        *sums = {reader.records(), reader.total(), std::move(types)};
    }
    return 0;
}

int verifyTwice(const std::string& path, uint32_t statusType, RecordOrder order, FileSums* sums) {
    const int ret = verifyUrlFile(path, statusType, order, sums);
    return ret == 1 ? verifyUrlFile(path, statusType, order, sums) : ret;
}

int readTotal(const std::string& path, uint32_t statusType, uint64_t& total) {
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    if (file.readStatus(statusType) != 0) {
        return file.broken() ? 1 : LOG_FAIL("read status from %s fail", path.c_str());
    }
    total = file.statusTotal();
    return file.close();
}

} // namespace kestrine
