#include "storage/url_record_block.h"

#include "frame/log.h"
#include "storage/block_pool.h"
#include "storage/compress.h"
#include "storage/reading.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <utility>

namespace kestrine {
namespace {

[[nodiscard]] int writeBytes(File& file, ByteView data) {
    const int64_t written = file.write(data);
    if (written != static_cast<int64_t>(data.size())) {
        return LOG_FAIL("fwrite fail, need to write %d, ret %d, errno %d",
                        static_cast<int32_t>(data.size()), static_cast<int32_t>(written), errno);
    }
    return 0;
}

} // namespace

UrlRecordBlock::~UrlRecordBlock() {
    // Merges open and close many files, and hand a buffer of two megabytes from one to the next.
    blockPool::giveBack(std::move(m_buffer));
}

int UrlRecordBlock::init(int32_t capacity) {
    if (isInitialised()) {
        return LOG_FAIL("call twice! will lead to memory leak!");
    }
    if (capacity <= 0 || capacity > g_blockCapacity) {
        return LOG_FAIL("param invalid");
    }
    if (blockPool::take(static_cast<size_t>(capacity), m_buffer) != 0) {
        return LOG_FAIL("malloc fail %d errno %d", capacity, errno);
    }
    reset();
    return 0;
}

void UrlRecordBlock::reset() {
    m_header = {};
    m_state = State::Records;
    m_recordIndex = 0;
    m_offset = 0;
}

size_t UrlRecordBlock::used() const {
    return m_state == State::Records ? static_cast<size_t>(m_header.rawSize) : 0;
}

// ---- writing

bool UrlRecordBlock::hasRoomFor(const UrlRecordView& record) const {
    // The header's sum is signed: one that overflows could not be read back.
    return used() + record.size() < m_buffer.size() &&
           record.count <= g_maxCount - static_cast<uint64_t>(m_header.totalCount);
}

void UrlRecordBlock::append(const UrlRecordView& record) {
    assert(m_state == State::Records && hasRoomFor(record));
    record.store(m_buffer.data() + used());
    m_header.add(record);
    m_header.rawSize += static_cast<int32_t>(record.size());
}

int UrlRecordBlock::writeOneBlock(File& file) {
    if (used() == 0 || m_header.count == 0) {
        return 0;
    }
    Compress* compressor = nullptr;
    if (Compress::getInstance(&compressor) != 0) {
        return LOG_FAIL("Compress::getInstance fail");
    }
    ByteView data;
    // Raw where it does not shrink, and where the library fails: readers take both.
    m_header.flag = compressor->compress(rawData(), &data) == 0 ? 1 : 0;
    if (m_header.flag == 0) {
        data = rawData();
    }
    m_header.blockSize = static_cast<int32_t>(data.size());
    if (Util::validateBlockHeader(&m_header) != 0) {
        return LOG_FAIL("validateBlockHeader fail");
    }
    std::array<uint8_t, BlockHeader::g_size> bytes{};
    // Header and data need not appear together: a file cut between them has no trailer.
    m_header.store(bytes);
    return writeBytes(file, bytes) == 0 && writeBytes(file, data) == 0 ? 0 : -1;
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
    // A rest too short for a header is the end, too; what was cut off there is missing from the
    // total.
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
        // Or the numbers of a bad header would pass for records in hand.
        reset();
        return g_damaged;
    }
    m_state = State::Header;
    return 0;
}

int UrlRecordBlock::readBlockData(File& file, int64_t endPos) {
    if (!awaitsData()) {
        return LOG_FAIL("ERROR");
    }
    const int64_t cur = file.tell();
    // A position that cannot be told is an error; sizes that the file cannot keep are damage.
    int result = cur < 0 ? LOG_FAIL("_ftelli64 fail, errno %d", errno)
                         : (checkBlockData(cur, endPos) == 0 ? 0 : g_damaged);
    if (result == 0) {
        result = readStored(file, cur);
    }
    if (result != 0) {
        reset();
        return result;
    }
    m_state = State::Stored;
    return 0;
}

int UrlRecordBlock::skipBlockData(File& file, int64_t endPos) {
    const int64_t cur = file.tell();
    if (cur < 0) {
        return LOG_FAIL("_ftelli64 fail, errno %d", errno);
    }
    if (checkBlockData(cur, endPos) != 0) {
        return g_damaged;
    }
    const int64_t next = cur + m_header.blockSize;
    reset();
    return file.seek(next) == 0 ? 0 : LOG_FAIL("_fseeki64 fail, errno %d", errno);
}

// Raw data into the block's own buffer, a stream into the one that all blocks share.
int UrlRecordBlock::readStored(File& file, int64_t cur) {
    std::span<uint8_t> target = m_buffer.span();
    Compress* compressor = nullptr;
    if (m_header.flag == 1) {
        if (Compress::getInstance(&compressor) != 0) {
            return LOG_FAIL("Compress::getInstance fail");
        }
        target = compressor->buffer();
    }
    const auto size = static_cast<size_t>(m_header.blockSize);
    // Both hold it: it was compared with the block's capacity, and the shared buffer is larger.
    assert(size <= target.size());
    m_stored = target.first(size);
    return readExactly(file, cur, target.first(size));
}

// The sizes in the header, which agree with each other, against the buffer and the end of the
// blocks. 0 or -1.
int UrlRecordBlock::checkBlockData(int64_t cur, int64_t endPos) const {
    const bool compressed = m_header.flag == 1;
    const auto capacity = static_cast<int32_t>(m_buffer.size());
    const bool fits = m_header.rawSize <= capacity;
    if ((compressed || fits) && endPos - cur < m_header.blockSize) {
        return LOG_FAIL("have header but no content cur %lld, len %d, end %lld",
                        static_cast<long long>(cur), m_header.blockSize,
                        static_cast<long long>(endPos));
    }
    if (compressed && m_header.blockSize > capacity) {
        return LOG_FAIL("size overflow blockSize %d realSize %d", m_header.blockSize, capacity);
    }
    if (!fits) {
        return LOG_FAIL("size overflow rawSize %d realSize %d", m_header.rawSize, capacity);
    }
    return 0;
}

int UrlRecordBlock::unCompress() {
    if (m_state != State::Stored) {
        return LOG_FAIL("ERROR");
    }
    if (const int result = m_header.flag == 1 ? decode() : 0; result != 0) {
        reset();
        return result;
    }
    m_state = State::Records;
    m_recordIndex = 0;
    m_offset = 0;
    return 0;
}

int UrlRecordBlock::decode() {
    Compress* compressor = nullptr;
    if (Compress::getInstance(&compressor) != 0) {
        return LOG_FAIL("Compress::getInstance fail");
    }
    size_t length = 0;
    if (const int result = compressor->unCompress(m_stored, m_buffer.span(), &length);
        result != 0) {
        LOG_ERROR("unCompress fail");
        return result;
    }
    // A stream that decodes well, but to another length, has lost its header or is another block's.
    if (length != static_cast<size_t>(m_header.rawSize)) {
        LOG_ERROR("uncompress size %d, raw %d", static_cast<int32_t>(length), m_header.rawSize);
        return g_damaged;
    }
    return 0;
}

ByteView UrlRecordBlock::storedData() const {
    assert(m_state == State::Stored);
    return m_stored;
}

bool UrlRecordBlock::hasCurrent() const {
    return m_state == State::Records && m_recordIndex < m_header.count;
}

int UrlRecordBlock::getCurrentUrlRecord(UrlRecordView& record) const {
    if (!hasCurrent()) {
        return LOG_FAIL("no current record, index %d count %d", m_recordIndex, m_header.count);
    }
    const ByteView rest = rawData().subspan(m_offset);
    const bool hasHead = rest.size() >= g_recordHeadSize;
    const auto urlLen = hasHead ? loadLittle<int32_t>(rest.data() + recordAt::g_urlLen) : 0;
    if (urlLen < 0 || urlLen > static_cast<int32_t>(g_maxHostText)) {
        LOG_INFO("url len invalid %d", urlLen); // 260 is the longest that is taken
    }
    if (parseRecord(rest, record) != 0) {
        return LOG_FAIL("record invalid, %d bytes left in the block",
                        static_cast<int32_t>(rest.size()));
    }
    // Merged or counted, it would make a block that cannot be written.
    if (!isCount(record.count)) {
        return LOG_FAIL("count of a record invalid %llu",
                        static_cast<unsigned long long>(record.count));
    }
    // A header whose count was damaged would silently drop records.
    const bool last = m_recordIndex + 1 == m_header.count;
    if (last && record.size() != rest.size()) {
        return LOG_FAIL("last record ends at %d, raw %d",
                        static_cast<int32_t>(m_offset + record.size()), m_header.rawSize);
    }
    return 0;
}

void UrlRecordBlock::advance(const UrlRecordView& record) {
    assert(hasCurrent() && record.size() <= used() - m_offset);
    ++m_recordIndex;
    m_offset += record.size();
}

void UrlRecordBlock::addToFirst(uint64_t count) {
    assert(hasCurrent() && m_recordIndex == 0 && used() >= g_recordHeadSize &&
           count <= g_maxCount - static_cast<uint64_t>(m_header.totalCount));
    // In place: counts have a fixed width, so that nothing behind the field moves.
    uint8_t* const field = m_buffer.data() + recordAt::g_count;
    storeLittle(field, std::min(loadLittle<uint64_t>(field) + count, g_maxCount));
    m_header.totalCount += static_cast<int64_t>(count);
}

} // namespace kestrine
