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
#include "frame/retry.h"
#include "storage/reading.h"
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
    const int64_t size = triedAgain([this] { return m_file->size(); });
    if (size < 0) {
        return LOG_FAIL("_stati64 %s fail, errno %d", m_path.c_str(), errno);
    }
    int result = readEndPosition(size);
    const bool known = m_type == type && !std::holds_alternative<std::monostate>(m_status);
    if (result == 0 && !known) {
        result = readStatusRecord(size, type);
    }
    if (result != 0) {
        return result == g_damaged ? breakFile() : -1;
    }
    if (triedAgain([this] { return m_file->seek(0); }) != 0) {
        return LOG_FAIL("_fseeki64 fail %s, errno %d, size %lld pos 0", m_path.c_str(), errno,
                        static_cast<long long>(size));
    }
    m_block->reset();
    m_headerPending = false;
    m_eof = false;
    return 0;
}

// 0, g_damaged or -1; so do the steps below.
int UrlFile::readEndPosition(int64_t size) {
    const int64_t offset = size - g_endPositionSize;
    const auto seekTo = [&](int64_t position) {
        if (triedAgain([&] { return m_file->seek(position); }) == 0) {
            return 0;
        }
        return LOG_FAIL("_fseeki64 fail %s, errno %d, size %lld offset %lld", m_path.c_str(), errno,
                        static_cast<long long>(size), static_cast<long long>(position));
    };
    if (offset < 0) {
        LOG_ERROR("%s is too short for an end position, size %lld", m_path.c_str(),
                  static_cast<long long>(size));
        return g_damaged;
    }
    if (seekTo(offset) != 0) {
        return -1;
    }
    std::array<uint8_t, g_endPositionSize> bytes{};
    if (const int result = readExactly(*m_file, offset, bytes); result != 0) {
        LOG_ERROR("fread fail %s errno %d ret %d", m_path.c_str(), errno, result);
        return result;
    }
    const auto endPos = loadLittle<int64_t>(bytes.data());
    if (endPos < 0 || endPos > size - g_trailerSize) {
        LOG_ERROR("end pos out of range [0, %lld] %lld %s",
                  static_cast<long long>(size - g_trailerSize), static_cast<long long>(endPos),
                  m_path.c_str());
        return g_damaged;
    }
    if (seekTo(endPos) != 0) {
        return -1;
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
        return result == 0 ? -1 : result;
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
    const int result = DayStatus::readStatus(m_file.get(), end - m_endPos, status);
    if (result != 0) {
        LOG_ERROR("DayStatus::readStatus fail");
    }
    return result;
}

int UrlFile::readWeekMonStatus(int64_t end) {
    auto& status = m_status.emplace<WeekMonStatus>();
    const int result = WeekMonStatus::readStatus(m_file.get(), end - m_endPos, status);
    if (result != 0) {
        LOG_ERROR("WeekMonStatus::readStatus fail");
    }
    return result;
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
