// One call of readHistory:
//  1. When no uncompressed block is in hand, the next block of the file is read and uncompressed.
//  2. Its user-buffer records are copied out, until the caller's buffer is full (they stay in hand)
//     or the block is used up (the position is committed).
//  3. At the end of a file, or at damage in it, the reader goes on with the next file that it can
//     open; when there is none, the position stays at the last file that it did open, so that
//     whatever appears behind it later is not passed over.
#include "input/loader_reader.h"

#include "frame/bytes.h"
#include "frame/data_path.h"
#include "frame/log.h"
#include "frame/retry.h"
#include "input/log_file_due.h"
#include "input/user_buffer.h"
#include "storage/codec.h"
#include "tree/names.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace kestrine {

namespace {

constexpr size_t g_entryLengthSize = 4;
constexpr uint64_t g_skippedRecordLines = 3; // of a file that get a line of their own

int logOffset(const LoaderPosition& position) {
    return static_cast<int>(position.offset);
}

// The log writer's own bound, the same for every reader of a process.
uint32_t largestBlock() {
    static const LoggerSettings settings;
    return static_cast<uint32_t>(settings.defaultBlockSize);
}

int getFileSize(File& file, int64_t& size) {
    size = file.size();
    if (size < 0) {
        return LOG_FAIL("stat fail, errno %d", errno);
    }
    return 0;
}

} // namespace

LoaderReader::~LoaderReader() {
    if (close() != 0) {
        LOG_ERROR("close fail");
    }
}

int LoaderReader::init(std::span<uint8_t> compressedBuffer, std::span<uint8_t> rawBuffer,
                       int32_t settleTime) {
    m_settleTime = settleTime;
    m_compressedBuffer = compressedBuffer;
    m_rawBuffer = rawBuffer;
    m_capacity = std::min(compressedBuffer.size(), rawBuffer.size());
    if (m_capacity == 0) {
        return LOG_FAIL("param invalid");
    }
    return 0;
}

int LoaderReader::open(const std::string& nodePath, int32_t startFileNumber) {
    if (nodePath.empty()) {
        LOG_ERROR("param invalid");
        return g_loaderError;
    }
    if (close() != 0) {
        LOG_ERROR("close fail");
        return g_loaderError;
    }
    m_nodePath = nodePath;
    m_type = nodePath.back();
    m_committed = LoaderPosition{};
    m_current = LoaderPosition{startFileNumber};
    m_hasPosition = false;
    dropRawData();
    if (!platform().exists(nodePath)) {
        LOG_DEBUG("%s not exsit", nodePath.c_str());
        return g_loaderNoMore;
    }
    const int result = openFile(startFileNumber);
    if (result != g_loaderDone) {
        return result;
    }
    return setHistoryEndPos();
}

int LoaderReader::close() {
    if (!m_file) {
        return g_loaderDone;
    }
    reportSkippedRecords();
    const int result = m_file->close();
    m_file.reset();
    if (result != 0) {
        LOG_ERROR("fclose fail, errno %d", errno);
        return g_loaderError;
    }
    return g_loaderDone;
}

int LoaderReader::openFile(int32_t fileNumber) {
    for (int32_t number = fileNumber;; ++number) {
        // One whose name is too long, or that cannot be looked at for good, is taken for one that
        // is not there yet: passing over it would go on and on in a directory without access.
        const int there = isLogFileDue(m_nodePath, number, m_settleTime);
        if (there != 1) {
            return there == 0 ? g_loaderNoMore : g_loaderError;
        }
        const std::string path = names::datFile(m_nodePath, number);
        // One that cannot be read for good must not keep those behind it from being counted.
        const int result = tryOpenFile(path, number);
        if (result != g_loaderNoMore || number == std::numeric_limits<int32_t>::max()) {
            return result;
        }
    }
}

// As openFile for one file; 2 when it is to be passed over. A call that fails for a passing reason
// fails the node, whose position stays: the file is good for all that is known of it.
int LoaderReader::tryOpenFile(const std::string& path, int32_t fileNumber) {
    const int64_t next = int64_t{fileNumber} + 1;
    m_skippedRecords = 0;
    m_file = triedAgain([&path] { return platform().open(path, OpenMode::ReadExisting); });
    // Never written here, so a log that only may be read is as good.
    if (!m_file && (errno == EACCES || errno == EPERM || errno == EROFS)) {
        m_file = triedAgain([&path] { return platform().open(path, OpenMode::Read); });
    }
    if (!m_file && isPassing(errno)) {
        LOG_ERROR("open %s fail errno %d", path.c_str(), errno);
        return g_loaderError;
    }
    if (!m_file) {
        LOG_ERROR("open %s fail errno %d. try to jump to next file %d %s %c", path.c_str(), errno,
                  static_cast<int>(next), m_nodePath.c_str(), m_type);
        return g_loaderNoMore;
    }
    LOG_DEBUG("read %s", path.c_str());
    LogFileHeader header;
    const int result = getFileHeader(*m_file, header);
    // The call failed, not the file: the node waits for the next pass.
    if (result == g_readFailed) {
        return g_loaderError;
    }
    if (result != 0) {
        if (close() != 0) {
            LOG_ERROR("close fail");
            return g_loaderError;
        }
        LOG_ERROR("getFileHeader fail %d, try to jump to next file %d %s %c", result,
                  static_cast<int>(next), m_nodePath.c_str(), m_type);
        return g_loaderNoMore;
    }
    m_current = LoaderPosition{fileNumber};
    m_hasPosition = true;
    if (m_file->seek(static_cast<int64_t>(m_current.offset)) != 0) {
        LOG_ERROR("fseek fail errno %d %c %d %d %d", errno, m_type, m_current.fileNumber,
                  logOffset(m_current), m_current.third);
        return g_loaderError;
    }
    return g_loaderDone;
}

int LoaderReader::setHistoryEndPos() {
    // Asked once: a file that grows faster than it is read would never end.
    if (getFileSize(*m_file, m_endPos) != 0) {
        LOG_ERROR("getFileSize fail, errno %d", errno);
        return g_loaderError;
    }
    return g_loaderDone;
}

int LoaderReader::jumpToNextFile() {
    // Also what is left of a block with a damaged record: nothing behind it can be trusted.
    dropRawData();
    if (close() != 0) {
        LOG_ERROR("close fail");
        return g_loaderError;
    }
    if (m_current.fileNumber == std::numeric_limits<int32_t>::max()) {
        return g_loaderNoMore;
    }
    const int result = openFile(m_current.fileNumber + 1);
    if (result == g_loaderError) {
        LOG_ERROR("openFile fail");
    }
    return result;
}

int LoaderReader::readHistory(std::span<uint8_t> buffer, size_t& used) {
    used = 0;
    if (buffer.empty()) {
        LOG_ERROR("param invalid");
        return g_loaderError;
    }
    errno = 0;
    m_errno = 0;
    m_callFailed = false;
    while (m_file) {
        const int result = readHistoryInside(buffer, used);
        if (result == g_loaderDone) {
            return g_loaderDone;
        }
        if (result == g_loaderError) {
            LOG_ERROR("readHistoryInside fail %c %d %d %d", m_type, m_current.fileNumber,
                      logOffset(m_current), m_current.third);
        }
        if (m_callFailed) {
            return g_loaderError; // says nothing about the file, which must not be passed over
        }
        const int advanced = advanceFile();
        if (advanced != g_loaderDone) {
            return advanced;
        }
    }
    return g_loaderNoMore;
}

int LoaderReader::advanceFile() {
    const int result = jumpToNextFile();
    if (result == g_loaderError) {
        LOG_ERROR("jumpToNextFile fail %c %d %d %d", m_type, m_current.fileNumber,
                  logOffset(m_current), m_current.third);
    }
    if (result != g_loaderDone) {
        return result;
    }
    if (setHistoryEndPos() != g_loaderDone) {
        LOG_ERROR("setHistoryEndPos fail %c %d %d %d", m_type, m_current.fileNumber,
                  logOffset(m_current), m_current.third);
        return g_loaderError;
    }
    return g_loaderDone;
}

int LoaderReader::readHistoryInside(std::span<uint8_t> buffer, size_t& used) {
    if (m_rawOffset >= m_rawLength) {
        const int result = readHistoryUnCompressData();
        if (result != g_loaderDone) {
            return result;
        }
    }
    switch (fillRecord(buffer, used)) {
    case Fill::Damaged:
        LOG_ERROR("fillRecord fail %c %d %d %d", m_type, m_current.fileNumber, logOffset(m_current),
                  m_current.third);
        return g_loaderNoMore;
    case Fill::BlockDone:
        commitPosition();
        break;
    case Fill::Full:
        break;
    }
    return g_loaderDone;
}

int LoaderReader::readHistoryUnCompressData() {
    const int64_t position = m_file->tell();
    if (position < 0) {
        m_callFailed = true;
        LOG_ERROR("ftell fail, errno %d", errno);
        return g_loaderError;
    }
    const int64_t payload = position + static_cast<int64_t>(g_logBlockHeaderSize);
    // No room for one more header: the end, or a block that is being written.
    if (payload > m_endPos) {
        return g_loaderNoMore;
    }
    LogBlockHeader header;
    const int result = readBlockHeaderNoWait(*m_file, position, header, largestBlock());
    if (result != 0) {
        m_errno = errno;
        m_callFailed = result == g_readFailed;
        LOG_INFO("readBlockHeaderNoWait fail, %c %d %d %d errno %d ret %d", m_type,
                 m_current.fileNumber, logOffset(m_current), m_current.third, m_errno, result);
        return g_loaderError;
    }
    if (header.rawSize > m_capacity || header.blockSize > m_capacity) {
        LOG_INFO("buff error buffSize:%d, rawSize:%d, blockSize:%d %c %d %d %d",
                 static_cast<int>(m_capacity), static_cast<int>(header.rawSize),
                 static_cast<int>(header.blockSize), m_type, m_current.fileNumber,
                 logOffset(m_current), m_current.third);
        return g_loaderNoMore;
    }
    return readPayload(header, payload);
}

int LoaderReader::readPayload(const LogBlockHeader& header, int64_t start) {
    const int64_t end = start + int64_t{header.storedSize()};
    // A block that its writer has not finished is not read in part.
    if (end > m_endPos) {
        return g_loaderNoMore;
    }
    const std::span<uint8_t> target = header.flag == 0 ? m_rawBuffer : m_compressedBuffer;
    if (const int result = readNoWait(*m_file, start, target.first(header.storedSize()));
        result != 0) {
        m_errno = errno;
        m_callFailed = result == g_readFailed;
        LOG_ERROR("readNoWait fail, errno %d %c %d %d %d", m_errno, m_type, m_current.fileNumber,
                  logOffset(m_current), m_current.third);
        return g_loaderError;
    }
    m_current.offset = static_cast<uint64_t>(end);
    if (header.flag == 1 && inflatePayload(header) != 0) {
        return g_loaderNoMore;
    }
    m_rawLength = header.rawSize;
    m_rawOffset = 0;
    return g_loaderDone;
}

int LoaderReader::inflatePayload(const LogBlockHeader& header) {
    size_t length = header.rawSize;
    const int result = codec::decode(m_compressedBuffer.first(header.blockSize),
                                     m_rawBuffer.first(header.rawSize), length);
    m_callFailed = result == Z_MEM_ERROR; // says nothing about the bytes
    // A shorter result is damage, too: the records at its end are missing.
    if (result != Z_OK || length != header.rawSize) {
        return LOG_FAIL("uncompress fail, ret %d, rawSize %u, unLen %u", result, header.rawSize,
                        static_cast<unsigned>(length));
    }
    return 0;
}

bool LoaderReader::validNetAction(ByteView payload) {
    const bool present = payload.size() >= g_payloadActionOffset + 4;
    const int32_t action =
        present ? loadLittle<int32_t>(payload.data() + g_payloadActionOffset) : 0;
    if (action >= 2 && action <= 4) {
        return true;
    }
    // A log may hold nothing else: a line for each would drown all others.
    if (++m_skippedRecords <= g_skippedRecordLines) {
        LOG_INFO("net action invalid %d, skip this record", action);
    }
    return false;
}

// At the end of a file: how many records were skipped beyond those that had a line of their own.
void LoaderReader::reportSkippedRecords() {
    if (m_skippedRecords > g_skippedRecordLines) {
        LOG_INFO("net action invalid in %llu records of file %d of %s, skipped",
                 static_cast<unsigned long long>(m_skippedRecords), m_current.fileNumber,
                 m_nodePath.c_str());
    }
    m_skippedRecords = 0;
}

LoaderReader::Fill LoaderReader::fillRecord(std::span<uint8_t> buffer, size_t& used) {
    while (m_rawLength - m_rawOffset >= g_logRecordHeadSize) {
        const uint8_t* head = m_rawBuffer.data() + m_rawOffset;
        const auto length = loadLittle<uint32_t>(head + 4);
        if (length > m_rawLength - m_rawOffset - g_logRecordHeadSize) {
            LOG_ERROR("find no udp packet!!!");
            return Fill::Damaged;
        }
        const ByteView payload(head + g_logRecordHeadSize, length);
        // Of records of every type: after damage in one nobody can tell where the next begins.
        const uint32_t computed = codec::crc32(payload);
        const auto stored = loadLittle<uint32_t>(head + 8);
        if (computed != stored) {
            LOG_ERROR("crc not match %u %u", computed, stored);
            return Fill::Damaged;
        }
        // A record always fits an empty buffer of a block's size: its head in the block takes more
        // than the length before it here.
        const size_t room = buffer.size() - used;
        if (room < g_entryLengthSize || room - g_entryLengthSize < length) {
            return Fill::Full;
        }
        if (loadLittle<uint32_t>(head) == g_userBufferRecord && validNetAction(payload)) {
            storeLittle(buffer.data() + used, length);
            std::memcpy(buffer.data() + used + g_entryLengthSize, payload.data(), length);
            used += g_entryLengthSize + length;
        }
        m_rawOffset += g_logRecordHeadSize + length;
    }
    return Fill::BlockDone;
}

void LoaderReader::commitPosition() {
    m_committed = m_current;
    dropRawData();
}

void LoaderReader::dropRawData() {
    m_rawLength = 0;
    m_rawOffset = 0;
}

} // namespace kestrine
