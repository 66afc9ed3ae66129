#include "storage/verify.h"

#include "frame/log.h"
#include "frame/run_flag.h"

#include <utility>

namespace kestrine {

int VerifyingReader::readOneRecord(UrlRecordView& record) {
    const int ret = m_file.readOneRecord(record);
    if (ret < 0) {
        return -1;
    }
    // A whole block that is missing leaves order and headers right; the total shows it.
    if (ret == 1) {
        return m_file.statusTotal() == m_total
                   ? 1
                   : breakFile("total of the status does not fit the records");
    }
    if (!m_order.next(record)) {
        return breakFile("records not in order");
    }
    ++m_records;
    m_total += record.count;
    m_block.add(record);
    // Only with its last record is everything known that a block's header must say.
    if (m_file.block().hasCurrent()) {
        return 0;
    }
    return std::exchange(m_block, {}).agrees(m_file.block().header())
               ? 0
               : breakFile("header of a block does not fit its records");
}

// What was read without an error and contradicts itself is damage.
int VerifyingReader::breakFile(const char* what) {
    LOG_ERROR("%s: %s, set broken flag", m_file.path().c_str(), what);
    m_file.setBroken();
    return -1;
}

int verifyUrlFile(const std::string& path, uint32_t statusType, RecordOrder order, FileSums* sums) {
    UrlFile file;
    if (const int ret = file.openToRead(path, statusType); ret != 0) {
        return ret;
    }
    VerifyingReader reader(file, order);
    UrlRecordView record;
    std::set<uint32_t> types;
    int ret = 0;
    while ((ret = reader.readOneRecord(record)) == 0) {
        // Not 0: of a file that was read in part nothing is known.
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
    // Only damage is looked at twice: an error or a stop says nothing that could be confirmed.
    return ret == 1 ? verifyUrlFile(path, statusType, order, sums) : ret;
}

int readTotal(const std::string& path, uint32_t statusType, uint64_t& total) {
    UrlFile file;
    if (const int ret = file.openToRead(path, statusType); ret != 0) {
        return ret;
    }
    total = file.statusTotal();
    return file.close();
}

} // namespace kestrine
