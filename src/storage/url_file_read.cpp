#include "frame/log.h"
#include "storage/reading.h"
#include "storage/url_file.h"

namespace kestrine {

int UrlFile::getTopRecord(UrlRecordView& record) {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (m_eof) {
        return 1;
    }
    if (!m_block->hasCurrent()) {
        const int result = readUrlRecordBlocks();
        if (result < 0) {
            LOG_ERROR("read blocks from file %s fail", m_path.c_str());
        }
        if (result != 0) {
            return result;
        }
    }
    if (m_block->getCurrentUrlRecord(record) != 0) {
        LOG_ERROR("getCurrentUrlRecord fail, set broken flag %s", m_path.c_str());
        m_broken = true;
        return -1;
    }
    return 0;
}

int UrlFile::readOneRecord(UrlRecordView& record) {
    const int result = getTopRecord(record);
    if (result < 0) {
        LOG_ERROR("getTopRecord fail %s", m_path.c_str());
    }
    if (result != 0) {
        return result;
    }
    m_block->advance(record);
    countRecordRead();
    return 0;
}

int UrlFile::readUrlRecordBlocks() {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    m_block->reset();
    m_headerPending = false;
    const int result = m_block->readOneBlock(*m_file, m_endPos);
    if (result == 1) {
        m_eof = true;
    }
    return result == 0 || result == 1 ? result : failedRead(result, "readOneBlock");
}

// After a read that failed: wrong bytes make the file broken. Returns -1.
int UrlFile::failedRead(int result, const char* what) {
    if (result != g_damaged) {
        return LOG_FAIL("%s fail %s", what, m_path.c_str());
    }
    m_broken = true;
    return LOG_FAIL("%s fail, set broken flag %s", what, m_path.c_str());
}

int UrlFile::readBlockHeader(BlockHeader& header) {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (m_eof) {
        return 1;
    }
    if (!m_headerPending) {
        const int result = readNextHeader();
        if (result != 0) {
            return result;
        }
    }
    header = m_block->header();
    return 0;
}

int UrlFile::readNextHeader() {
    if (m_block->hasCurrent()) {
        return LOG_FAIL("still have next");
    }
    const int result = m_block->readBlockHeader(*m_file, m_endPos);
    if (result != 0 && result != 1) {
        return failedRead(result, "read one block");
    }
    m_headerPending = result == 0;
    m_eof = result == 1;
    return result;
}

int UrlFile::readBlockData(ByteView& data) {
    if (!m_headerPending) {
        return LOG_FAIL("param invalid");
    }
    m_headerPending = false;
    if (const int result = m_block->readBlockData(*m_file, m_endPos); result != 0) {
        return failedRead(result, "read block data");
    }
    data = m_block->storedData();
    return 0;
}

int UrlFile::unCompress() {
    if (m_block == nullptr || m_headerPending) {
        return LOG_FAIL("param invalid");
    }
    if (const int result = m_block->unCompress(); result != 0) {
        return failedRead(result, "uncompress");
    }
    return 0;
}

} // namespace kestrine
