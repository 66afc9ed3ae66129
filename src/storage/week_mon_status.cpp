#include "frame/buffer.h"
#include "frame/log.h"
#include "storage/reading.h"
#include "storage/status.h"
#include "storage/status_frame.h"
#include "storage/url_key.h"
#include "tree/names.h"

namespace kestrine {
namespace {

constexpr size_t g_headSize = 12;
constexpr size_t g_entrySize = 264;

[[nodiscard]] int storeEntry(uint8_t* bytes, const DateEntry& entry) {
    storeLittle(bytes + 260, entry.counter);
    return storeStatusPath(bytes, entry.path);
}

DateEntry loadEntry(const uint8_t* bytes) {
    return {loadStatusPath(bytes), loadLittle<int32_t>(bytes + 260)};
}

} // namespace

int WeekMonStatus::writeStatus(File* file) const {
    if (file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (m_entries.empty()) {
        return LOG_FAIL("device info size 0");
    }
    Buffer record;
    if (allocateStatus(g_headSize + g_entrySize * m_entries.size(), record) != 0) {
        return -1;
    }
    uint8_t* bytes = record.data() + g_statusFrameSize;
    storeLittle(bytes, m_totalCount);
    storeLittle(bytes + 8, static_cast<uint32_t>(m_entries.size()));
    bytes += g_headSize;
    for (const DateEntry& entry : m_entries) {
        if (storeEntry(bytes, entry) != 0) {
            return -1;
        }
        bytes += g_entrySize;
    }
    return writeStatusRecord(*file, record);
}

int WeekMonStatus::readStatus(File* file, int64_t length, WeekMonStatus& status) {
    if (file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    uint64_t stored = 0;
    Buffer body;
    if (const int result = readStatusRecord(*file, length, stored, body); result != 0) {
        return result;
    }
    status.m_checksumFits = stored == urlKey(body.span());
    return status.parse(body.span()) == 0 ? 0 : g_damaged;
}

int WeekMonStatus::parse(ByteView body) {
    if (body.size() < g_headSize) {
        return LOG_FAIL("len %d too short", static_cast<int32_t>(body.size()));
    }
    m_totalCount = loadLittle<int64_t>(body.data());
    size_t start = g_headSize;
    for (; body.size() - start >= g_entrySize; start += g_entrySize) {
        m_entries.push_back(loadEntry(body.data() + start));
    }
    if (start != body.size()) {
        LOG_INFO("error start %d len %d", static_cast<int32_t>(start),
                 static_cast<int32_t>(body.size()));
    }
    return 0;
}

void WeekMonStatus::setTotalCount(int64_t count) {
    if (count < 0) {
        LOG_INFO("error counter %d", static_cast<int32_t>(count));
    }
    m_totalCount = count;
}

bool WeekMonStatus::atEnd() const {
    return m_index >= static_cast<int32_t>(m_entries.size());
}

std::string WeekMonStatus::getNewPath() const {
    if (m_index < 0 || atEnd()) {
        LOG_ERROR("m_index %d size %d", m_index, static_cast<int32_t>(m_entries.size()));
        return {};
    }
    return m_entries[static_cast<size_t>(m_index)].path;
}

int32_t WeekMonStatus::getNewCounter() const {
    if (m_index < 0 || atEnd()) {
        return LOG_FAIL("m_index %d size %d", m_index, static_cast<int32_t>(m_entries.size()));
    }
    const int32_t counter = m_entries[static_cast<size_t>(m_index)].counter;
    if (counter < -1) {
        LOG_ERROR("m_counter -1");
    }
    return counter;
}

void WeekMonStatus::moveNextAfter() {
    if (atEnd()) {
        LOG_ERROR("m_index %d size %d result %d", m_index, static_cast<int32_t>(m_entries.size()),
                  m_index + 1);
    }
    ++m_index;
}

int32_t WeekMonStatus::counterOfDate(const std::string& path) const {
    const std::string_view date = names::lastComponent(path);
    for (const DateEntry& entry : m_entries) {
        if (names::lastComponent(entry.path) == date) {
            return entry.counter;
        }
    }
    return -1;
}

} // namespace kestrine
