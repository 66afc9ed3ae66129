#include "storage/url_record_block.h"

#include "frame/configuration.h"
#include "frame/log.h"
#include "storage/compress.h"
#include "storage/reading.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace kestrine {
namespace {

[[nodiscard]] int writeAll(File& file, ByteView data) {
    const int64_t written = file.write(data);
    if (written != static_cast<int64_t>(data.size())) {
        return LOG_FAIL("fwrite fail, need to write %d, ret %d, errno %d",
                        static_cast<int32_t>(data.size()), static_cast<int32_t>(written), errno);
    }
    return 0;
}

void reportDamagedRecord(ByteView bytes) {
    if (bytes.size() >= g_recordHeadSize) {
        const auto urlLen = loadLittle<int32_t>(bytes.data() + 20);
        if (urlLen < 0 || urlLen > static_cast<int32_t>(g_maxHostText)) {
            LOG_INFO("url len invalid %d", urlLen);
        }
    }
    LOG_ERROR("record invalid, %d bytes left in the block", static_cast<int32_t>(bytes.size()));
}

} // namespace

int UrlRecordBlock::init() {
    if (!m_buffer.empty()) {
        return LOG_FAIL("call twice! will lead to memory leak!");
    }
    Configuration* configuration = nullptr;
    if (Configuration::getInstance(&configuration) != 0) {
        return LOG_FAIL("Configuration::getInstance fail");
    }
    m_capacity = configuration->urlBlockSize();
    if (m_buffer.allocate(static_cast<size_t>(m_capacity)) != 0) {
        return LOG_FAIL("malloc fail %d errno %d", m_capacity, errno);
    }
    reset();
    return 0;
}

void UrlRecordBlock::reset() {
    m_header = {};
    m_used = 0;
    m_recordIndex = 0;
    m_offset = 0;
}

// ---- writing

bool UrlRecordBlock::hasRoomFor(const UrlRecordView& record) const {
    return static_cast<int64_t>(record.size()) < int64_t{m_capacity} - m_used &&
           record.count <= g_maxCount - static_cast<uint64_t>(m_header.totalCount);
}

void UrlRecordBlock::append(const UrlRecordView& record) {
    record.store(m_buffer.data() + m_used);
    m_used += static_cast<int32_t>(record.size());
    ++m_header.count;
    m_header.totalCount += static_cast<int64_t>(record.count);
    m_header.minKey = std::min(m_header.minKey, record.key);
    m_header.maxKey = std::max(m_header.maxKey, record.key);
}

int UrlRecordBlock::writeOneBlock(File& file) {
    if (m_used == 0 || m_header.count == 0) {
        return 0;
    }
    Compress* compressor = nullptr;
    if (Compress::getInstance(&compressor) != 0) {
        return LOG_FAIL("Compress::getInstance fail");
    }
    ByteView data;
    m_header.flag = compressor->compress(m_buffer.data(), m_used, &data) == 0 ? 1 : 0;
    if (m_header.flag == 0) {
        data = m_buffer.span().first(used());
    }
    m_header.blockSize = static_cast<int32_t>(data.size());
    m_header.rawSize = m_used;
    if (Util::validateBlockHeader(&m_header) != 0) {
        return LOG_FAIL("validateBlockHeader fail");
    }
    std::array<uint8_t, BlockHeader::g_size> bytes{};
    m_header.store(bytes);
    return writeAll(file, bytes) == 0 && writeAll(file, data) == 0 ? 0 : -1;
}

// ---- reading

int UrlRecordBlock::readOneBlock(File& file, int64_t endPos) {
    int result = readBlockHeader(file, endPos);
    if (result == 1) {
        return 1;
    }
    if (result != 0) {
        LOG_ERROR("readBlockHeader fail");
        return result;
    }
    if (result = readBlockData(file, endPos); result != 0) {
        LOG_ERROR("read block data fail");
        return result;
    }
    if (result = unCompress(); result != 0) {
        LOG_ERROR("unCompress fail");
    }
    return result;
}

int UrlRecordBlock::readBlockHeader(File& file, int64_t endPos) {
    const int64_t cur = file.tell();
    if (cur < 0) {
        return LOG_FAIL("_ftelli64 fail, errno %d", errno);
    }
    if (endPos - cur < int64_t{BlockHeader::g_size}) {
        return 1;
    }
    std::array<uint8_t, BlockHeader::g_size> bytes{};
    if (const int result = readExactly(file, cur, bytes); result != 0) {
        return result;
    }
    m_header.load(bytes);
    if (Util::validateBlockHeader(&m_header) != 0) {
        LOG_ERROR("validateBlockHeader fail");
        reset();
        return g_damaged;
    }
    m_used = m_recordIndex = m_offset = g_notDecoded;
    return 0;
}

int UrlRecordBlock::readBlockData(File& file, int64_t endPos) {
    const int64_t cur = file.tell();
    int result = cur < 0 ? LOG_FAIL("_ftelli64 fail, errno %d", errno)
                         : (checkBlockData(cur, endPos) == 0 ? 0 : g_damaged);
    if (result == 0) {
        result =
            readExactly(file, cur, m_buffer.span().first(static_cast<size_t>(m_header.blockSize)));
    }
    if (result != 0) {
        reset();
    }
    return result;
}

// The sizes in the header against the buffer and the end of the blocks. 0 or -1.
int UrlRecordBlock::checkBlockData(int64_t cur, int64_t endPos) const {
    const bool compressed = m_header.flag == 1;
    if (!compressed && !rawDataFits()) {
        return -1;
    }
    if (endPos - cur < m_header.blockSize) {
        return LOG_FAIL("have header but no content cur %lld, len %d, end %lld",
                        static_cast<long long>(cur), m_header.blockSize,
                        static_cast<long long>(endPos));
    }
    if (compressed && m_header.blockSize > m_capacity) {
        return LOG_FAIL("size overflow blockSize %d realSize %d", m_header.blockSize, m_capacity);
    }
    return compressed && !rawDataFits() ? -1 : 0;
}

bool UrlRecordBlock::rawDataFits() const {
    if (m_header.rawSize > m_capacity) {
        LOG_ERROR("size overflow rawSize %d realSize %d", m_header.rawSize, m_capacity);
        return false;
    }
    return true;
}

int UrlRecordBlock::unCompress() {
    if (m_used != g_notDecoded || m_header.flag > 1) {
        return LOG_FAIL("ERROR");
    }
    if (const int result = m_header.flag == 1 ? decode() : 0; result != 0) {
        reset();
        return result;
    }
    m_used = m_header.rawSize;
    m_recordIndex = 0;
    m_offset = 0;
    return 0;
}

int UrlRecordBlock::decode() {
    Compress* compressor = nullptr;
    if (Compress::getInstance(&compressor) != 0) {
        return LOG_FAIL("Compress::getInstance fail");
    }
    ByteView data;
    if (const int result = compressor->unCompress(m_buffer.data(), m_header.blockSize, &data);
        result != 0) {
        LOG_ERROR("unCompress fail");
        return result;
    }
    if (data.size() != static_cast<size_t>(m_header.rawSize)) {
        LOG_ERROR("uncompress size %d, raw %d", static_cast<int32_t>(data.size()),
                  m_header.rawSize);
        return g_damaged;
    }
    std::memcpy(m_buffer.data(), data.data(), data.size());
    return 0;
}

ByteView UrlRecordBlock::storedData() const {
    return m_buffer.span().first(
        std::min(static_cast<size_t>(m_header.blockSize), m_buffer.size()));
}

std::span<uint8_t> UrlRecordBlock::rawData() {
    return m_buffer.span().first(m_used == g_notDecoded ? 0 : used());
}

bool UrlRecordBlock::hasCurrent() const {
    return m_used != g_notDecoded && m_recordIndex < m_header.count;
}

int UrlRecordBlock::getCurrentUrlRecord(UrlRecordView& record) const {
    if (!hasCurrent()) {
        return LOG_FAIL("no current record, index %d count %d", m_recordIndex, m_header.count);
    }
    const ByteView rest = m_buffer.span().subspan(static_cast<size_t>(m_offset),
                                                  static_cast<size_t>(m_used - m_offset));
    if (parseRecord(rest, record) != 0) {
        reportDamagedRecord(rest);
        return -1;
    }
    // Merged or counted, it would make a block that cannot be written.
    if (record.count == 0 || record.count > g_maxCount) {
        return LOG_FAIL("count of a record invalid %llu",
                        static_cast<unsigned long long>(record.count));
    }
    if (record.urlLen() > g_maxHostText) {
        LOG_INFO("url len invalid %d", static_cast<int32_t>(record.urlLen()));
    }
    // A header whose count was damaged would silently drop records.
    const bool last = m_recordIndex + 1 == m_header.count;
    if (last && record.size() != rest.size()) {
        return LOG_FAIL("last record ends at %d, raw %d",
                        m_offset + static_cast<int32_t>(record.size()), m_used);
    }
    return 0;
}

void UrlRecordBlock::advance(const UrlRecordView& record) {
    ++m_recordIndex;
    m_offset += static_cast<int32_t>(record.size());
}

} // namespace kestrine
