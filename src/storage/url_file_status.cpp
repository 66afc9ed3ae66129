// The trailer of a URL file.
//
// Writing: flush the last block, write the status record, then the position where the blocks end.
//
// Reading:
//   1. Find the file's size.
//   2. Read the end position from the last 8 bytes and seek to it.
//   3. Read the status record there, unless it was read before.
//   4. Go back to the start of the file, where the next block read is the first.
// Bytes between the status record and the end position are tolerated.
#include "frame/log.h"
#include "storage/url_file.h"

#include <array>
#include <cerrno>

namespace kestrine {
namespace {

constexpr int64_t g_endPositionSize = 8;
constexpr int64_t g_trailerSize = g_endPositionSize + int64_t{g_statusFrameSize}; // at least

} // namespace

int UrlFile::writeStatus(const DayStatus& status) {
    if (flush() != 0) {
        return LOG_FAIL("flush fail");
    }
    if (status.writeStatus(m_file.get()) != 0) {
        return LOG_FAIL("DayStatus::writeStatus fail");
    }
    return writeEndPosition();
}

int UrlFile::writeStatus(const WeekMonStatus& status) {
    if (flush() != 0) {
        return LOG_FAIL("flush fail");
    }
    if (status.writeStatus(m_file.get()) != 0) {
        return LOG_FAIL("WeekStatus::writeStatus fail");
    }
    return writeEndPosition();
}

int UrlFile::writeEndPosition() {
    std::array<uint8_t, g_endPositionSize> bytes{};
    storeLittle(bytes.data(), m_endPos);
    if (m_file->write(bytes) != g_endPositionSize) {
        return LOG_FAIL("fwrite fail, errno %d", errno);
    }
    return 0;
}

int UrlFile::readStatus(uint32_t type) {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (type != g_dayStatusType && type != g_weekMonStatusType) {
        return LOG_FAIL("type invalid %X", type);
    }
    const int64_t size = m_file->size();
    if (size < 0) {
        return LOG_FAIL("_stati64 %s fail, errno %d", m_path.c_str(), errno);
    }
    if (readEndPosition(size) != 0) {
        return -1;
    }
    const bool known = m_type == type && !std::holds_alternative<std::monostate>(m_status);
    if (!known && readStatusRecord(size, type) != 0) {
        return breakFile();
    }
    if (m_file->seek(0) != 0) {
        return LOG_FAIL("_fseeki64 fail %s, errno %d, size %lld pos 0", m_path.c_str(), errno,
                        static_cast<long long>(size));
    }
    m_block->reset();
    m_headerPending = false;
    m_eof = false;
    return 0;
}

int UrlFile::readEndPosition(int64_t size) {
    const int64_t offset = size - g_endPositionSize;
    if (offset < 0 || m_file->seek(offset) != 0) {
        LOG_ERROR("_fseeki64 fail %s, errno %d, size %lld offset %lld", m_path.c_str(), errno,
                  static_cast<long long>(size), static_cast<long long>(offset));
        return breakFile();
    }
    std::array<uint8_t, g_endPositionSize> bytes{};
    const int64_t got = m_file->read(bytes);
    if (got != g_endPositionSize) {
        return LOG_FAIL("fread fail %s errno %d ret %d", m_path.c_str(), errno,
                        static_cast<int32_t>(got));
    }
    const auto endPos = loadLittle<int64_t>(bytes.data());
    if (endPos > size - g_trailerSize) {
        LOG_ERROR("end pos out of range [0, %lld] %lld %s",
                  static_cast<long long>(size - g_trailerSize), static_cast<long long>(endPos),
                  m_path.c_str());
        return breakFile();
    }
    if (endPos < 0 || m_file->seek(endPos) != 0) {
        LOG_ERROR("_fseeki64 fail %s, errno %d, size %lld endpos %lld", m_path.c_str(), errno,
                  static_cast<long long>(size), static_cast<long long>(endPos));
        return breakFile();
    }
    m_endPos = endPos;
    return 0;
}

int UrlFile::readStatusRecord(int64_t size, uint32_t type) {
    const int64_t end = size - g_endPositionSize;
    const int result = type == g_dayStatusType ? readDayStatus(end) : readWeekMonStatus(end);
    const int64_t position = result == 0 ? m_file->tell() : -1;
    if (result == 0 && position < 0) {
        LOG_ERROR("_ftelli64 fail %s, errno %d", m_path.c_str(), errno);
    }
    if (position < 0) {
        m_status = std::monostate();
        return -1;
    }
    m_type = type;
    if (position != end) {
        LOG_INFO("end pos not %lld %lld", static_cast<long long>(position),
                 static_cast<long long>(end));
    }
    return 0;
}

int UrlFile::readDayStatus(int64_t end) {
    auto& status = m_status.emplace<DayStatus>();
    if (DayStatus::readStatus(m_file.get(), end - m_endPos, status) != 0) {
        return LOG_FAIL("DayStatus::readStatus fail");
    }
    return 0;
}

int UrlFile::readWeekMonStatus(int64_t end) {
    auto& status = m_status.emplace<WeekMonStatus>();
    if (WeekMonStatus::readStatus(m_file.get(), end - m_endPos, status) != 0) {
        return LOG_FAIL("WeekMonStatus::readStatus fail");
    }
    return 0;
}

uint64_t UrlFile::statusTotal() const {
    if (const auto* const day = std::get_if<DayStatus>(&m_status)) {
        return day->totalCount();
    }
    const auto* const weekMon = std::get_if<WeekMonStatus>(&m_status);
    return weekMon == nullptr ? 0 : static_cast<uint64_t>(weekMon->totalCount());
}

int UrlFile::breakFile() {
    m_broken = true;
    LOG_DEBUG("set broken flag %s", m_path.c_str());
    return -1;
}

} // namespace kestrine
