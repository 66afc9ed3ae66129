#include "storage/url_file.h"

#include "frame/log.h"
#include "frame/progress.h"
#include "frame/retry.h"
#include "storage/end_position.h"
#include "storage/reading.h"

#include <array>
#include <cassert>
#include <cerrno>

namespace kestrine {

UrlFile::~UrlFile() {
    // Logged only: whoever writes a file that counts closes it and looks at the result.
    if (m_file != nullptr && m_file->close() != 0) {
        LOG_ERROR("fclose %s fail, errno %d", m_path.c_str(), errno);
    }
}

int UrlFile::init() {
    if (m_block.init(m_blockCapacity) != 0) {
        return LOG_FAIL("UrlBlock::init fail");
    }
    return 0;
}

int UrlFile::open(const std::string& path, OpenMode mode) {
    if (path.empty() || m_file != nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (!m_block.isInitialised() && init() != 0) {
        return LOG_FAIL("UrlFile::init fail");
    }
    // One object may open file after file; the block keeps its buffer.
    startOver(path);
    // At the next try a handle may be free, or another process may have let the file go.
    m_file = triedAgain([&] { return platform().open(path, mode); });
    if (m_file == nullptr) {
        return LOG_FAIL("fopen %s fail, errno %d", path.c_str(), errno);
    }
    // A writer learns where the blocks end as it writes them.
    const bool reading = mode == OpenMode::Read || mode == OpenMode::ReadExisting;
    return reading ? findSize() : 0;
}

void UrlFile::startOver(const std::string& path) {
    m_path = path;
    m_totalCount = 0;
    m_endPos = 0;
    m_block.reset();
    m_status = std::monostate();
    m_broken = false;
    m_eof = false;
}

int UrlFile::findSize() {
    m_endPos = triedAgain([this] { return m_file->size(); });
    if (m_endPos < 0) {
        LOG_ERROR("_stati64 fail %s errno %d", m_path.c_str(), errno);
        m_file.reset();
        return -1;
    }
    // No failure here: the trailer is missing, and readStatus calls that damage.
    if (m_endPos == 0) {
        LOG_INFO("file %s is empty!!!", m_path.c_str());
    }
    return 0;
}

int UrlFile::close() {
    if (m_file == nullptr) {
        return 0;
    }
    const int result = m_file->close();
    if (result != 0) {
        LOG_ERROR("fclose %s fail, errno %d", m_path.c_str(), errno);
    }
    // Also after a failure: the handle is gone, and closing again would prove nothing.
    m_file.reset();
    return result == 0 ? 0 : -1;
}

int UrlFile::sync() {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    const LongCall sync;
    // Not tried again: after a failed sync the system may have dropped what was not written, and
    // report success the next time.
    if (m_file->sync() != 0) {
        return LOG_FAIL("sync %s fail, errno %d", m_path.c_str(), errno);
    }
    return 0;
}

int UrlFile::writeOneRecord(const UrlRecordView& record) {
    // What `getCurrentUrlRecord` would refuse is not written.
    if (m_file == nullptr || record.url.size() > g_maxHostText || !isCount(record.count)) {
        return LOG_FAIL("param invalid");
    }
    if (!m_block.hasRoomFor(record) && writeUrlRecordBlocks() != 0) {
        return LOG_FAIL("compressAndWriteFile fail");
    }
    // An empty block refuses only what its buffer cannot hold.
    if (!m_block.hasRoomFor(record)) {
        return LOG_FAIL("ERROR, still full");
    }
    m_block.append(record);
    m_totalCount += record.count;
    return 0;
}

int UrlFile::writeUrlRecordBlocks() {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (m_block.writeOneBlock(*m_file) != 0) {
        return LOG_FAIL("UrlRecordBlock::compressAndWriteFile fail");
    }
    m_block.reset();
    m_endPos = m_file->tell();
    if (m_endPos < 0) {
        return LOG_FAIL("_ftelli64 fail %s, errno %d", m_path.c_str(), errno);
    }
    return 0;
}

int UrlFile::flush() {
    if (writeUrlRecordBlocks() != 0) {
        return LOG_FAIL("writeUrlRecordBlocks fail");
    }
    return 0;
}

template <typename Status>
int UrlFile::writeTrailer(const Status& status, const char* failure) {
    assert(status.totalCount() == m_totalCount); // every reader of the whole file compares them
    // Blocks, status, end position: a file cut off anywhere before its end lacks the position
    // through which alone the status is found.
    if (flush() != 0) {
        return LOG_FAIL("flush fail");
    }
    if (status.writeStatus(m_file.get()) != 0) {
        return LOG_FAIL("%s", failure);
    }
    return writeEndPosition(*m_file, m_endPos);
}

int UrlFile::writeStatus(const DayStatus& status) {
    return writeTrailer(status, "DayStatus::writeStatus fail");
}

int UrlFile::writeStatus(const WeekMonStatus& status) {
    return writeTrailer(status, "WeekStatus::writeStatus fail");
}

int UrlFile::writeBlockHeader(const BlockHeader& header) {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    // Tested when it was read, but folding a record in may have changed it since.
    if (Util::validateBlockHeader(&header) != 0) {
        return LOG_FAIL("validateBlockHeader fail");
    }
    std::array<uint8_t, BlockHeader::g_size> bytes{};
    header.store(bytes);
    if (append(bytes) != 0) {
        return -1;
    }
    m_totalCount += static_cast<uint64_t>(header.totalCount);
    return 0;
}

int UrlFile::writeBlockData(ByteView data) {
    if (m_file == nullptr || data.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (append(data) != 0) {
        return -1;
    }
    m_block.reset();
    return 0;
}

int UrlFile::append(ByteView data) {
    // A short write (a full disk) leaves the file without use; who writes it removes it.
    if (m_file->write(data) != static_cast<int64_t>(data.size())) {
        return LOG_FAIL("fwrite fail %s errno %d", m_path.c_str(), errno);
    }
    m_endPos += static_cast<int64_t>(data.size());
    return 0;
}

int64_t UrlFile::pendingSize() const {
    const size_t used = m_block.used();
    return m_endPos + static_cast<int64_t>(used == 0 ? 0 : BlockHeader::g_size + used);
}

// ---- reading

int UrlFile::readStatus(uint32_t type) {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (type != g_dayStatusType && type != g_weekMonStatusType) {
        return LOG_FAIL("type invalid %X", type);
    }
    // Not m_endPos, which a call before this one may have moved to the end of the blocks.
    const int64_t size = triedAgain([this] { return m_file->size(); });
    if (size < 0) {
        return LOG_FAIL("_stati64 %s fail, errno %d", m_path.c_str(), errno);
    }
    int result = seekEndPosition(*m_file, m_path, size, m_endPos);
    // A merge brings the status of its source forward: what it made of it must not be lost.
    const bool known =
        type == g_dayStatusType ? dayStatus() != nullptr : weekMonStatus() != nullptr;
    if (result == 0 && !known) {
        result = readStatusRecord(size - g_endPositionSize, type);
    }
    // -1 in either case: that it was damage is told by `broken`, which brings the file to
    // quarantine.
    if (result == g_damaged) {
        m_broken = true;
        LOG_DEBUG("set broken flag %s", m_path.c_str());
    }
    if (result != 0) {
        return -1;
    }
    if (triedAgain([this] { return m_file->seek(0); }) != 0) {
        return LOG_FAIL("_fseeki64 fail %s, errno %d, size %lld pos 0", m_path.c_str(), errno,
                        static_cast<long long>(size));
    }
    m_block.reset();
    m_eof = false;
    return 0;
}

int UrlFile::openToRead(const std::string& path, uint32_t type) {
    if (open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    if (readStatus(type) != 0) {
        LOG_ERROR("read status from %s fail", path.c_str());
        return m_broken ? 1 : -1;
    }
    return 0;
}

// The record between the blocks and `end`. 0, g_damaged or -1.
int UrlFile::readStatusRecord(int64_t end, uint32_t type) {
    int result = type == g_dayStatusType
                     ? readInto<DayStatus>(end, "DayStatus::readStatus fail")
                     : readInto<WeekMonStatus>(end, "WeekMonStatus::readStatus fail");
    const int64_t position = result == 0 ? m_file->tell() : end;
    if (position < 0) {
        result = LOG_FAIL("_ftelli64 fail %s, errno %d", m_path.c_str(), errno);
    }
    // What was read in part must not pass for a status.
    if (result != 0) {
        m_status = std::monostate();
        return result;
    }
    // Bytes between status and end position are reported, and are nobody's.
    if (position != end) {
        LOG_INFO("end pos not %lld %lld", static_cast<long long>(position),
                 static_cast<long long>(end));
    }
    return 0;
}

template <typename Status>
int UrlFile::readInto(int64_t end, const char* failure) {
    const int result = Status::readStatus(m_file.get(), end - m_endPos, m_status.emplace<Status>());
    if (result != 0) {
        LOG_ERROR("%s", failure);
    }
    return result;
}

uint64_t UrlFile::statusTotal() const {
    const auto* const day = std::get_if<DayStatus>(&m_status);
    const auto* const weekMon = std::get_if<WeekMonStatus>(&m_status);
    return day != nullptr ? day->totalCount() : weekMon != nullptr ? weekMon->totalCount() : 0;
}

int UrlFile::getTopRecord(UrlRecordView& record) {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    // Remembered, since behind the last block the file goes on with its status.
    if (m_eof) {
        return 1;
    }
    if (!m_block.hasCurrent()) {
        const int result = readUrlRecordBlocks();
        if (result < 0) {
            LOG_ERROR("read blocks from file %s fail", m_path.c_str());
        }
        if (result != 0) {
            return result;
        }
    }
    // The block is in memory: no call of the system can have failed, only its bytes can be wrong.
    if (m_block.getCurrentUrlRecord(record) != 0) {
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
    m_block.advance(record);
    return 0;
}

int UrlFile::readUrlRecordBlocks() {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    m_block.reset();
    const int result = m_block.readOneBlock(*m_file, m_endPos);
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
    if (!m_block.awaitsData()) {
        if (const int result = readNextHeader(); result != 0) {
            return result;
        }
    }
    header = m_block.header();
    return 0;
}

int UrlFile::readNextHeader() {
    // Records in hand would be lost with the block that they lie in.
    if (m_block.hasCurrent()) {
        return LOG_FAIL("still have next");
    }
    const int result = m_block.readBlockHeader(*m_file, m_endPos);
    if (result != 0 && result != 1) {
        return failedRead(result, "read one block");
    }
    m_eof = result == 1;
    return result;
}

int UrlFile::readBlockData(ByteView& data) {
    if (m_file == nullptr || !m_block.awaitsData()) {
        return LOG_FAIL("param invalid");
    }
    if (const int result = m_block.readBlockData(*m_file, m_endPos); result != 0) {
        return failedRead(result, "read block data");
    }
    data = m_block.storedData();
    return 0;
}

int UrlFile::skipBlockData() {
    if (m_file == nullptr || !m_block.awaitsData()) {
        return LOG_FAIL("param invalid");
    }
    const int result = m_block.skipBlockData(*m_file, m_endPos);
    return result == 0 ? 0 : failedRead(result, "skip block data");
}

int UrlFile::unCompress() {
    if (const int result = m_block.unCompress(); result != 0) {
        return failedRead(result, "uncompress");
    }
    return 0;
}

} // namespace kestrine
