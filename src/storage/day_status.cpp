#include "frame/buffer.h"
#include "frame/log.h"
#include "storage/reading.h"
#include "storage/status.h"
#include "storage/status_frame.h"
#include "storage/url_key.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {
namespace {

constexpr size_t g_headSize = 16;
constexpr size_t g_entrySize = 272;

[[nodiscard]] int storeEntry(uint8_t* bytes, const NodeEntry& entry) {
    storeLittle(bytes + 260, entry.fileNumber);
    storeLittle(bytes + 264, entry.offset);
    return storeStatusPath(bytes, entry.path);
}

NodeEntry loadEntry(const uint8_t* bytes) {
    return {loadStatusPath(bytes), loadLittle<int32_t>(bytes + 260),
            loadLittle<uint64_t>(bytes + 264)};
}

} // namespace

int DayStatus::writeStatus(File* file) const {
    if (file == nullptr) {
        return LOG_FAIL("param invalid, null");
    }
    if (m_entries.empty()) {
        return LOG_FAIL("device info size 0");
    }
    Buffer record;
    if (allocateStatus(g_headSize + g_entrySize * m_entries.size(), record) != 0) {
        return -1;
    }
    uint8_t* bytes = record.data() + g_statusFrameSize;
    storeLittle(bytes, m_newCounter);
    storeLittle(bytes + 4, m_totalCount);
    storeLittle(bytes + 12, static_cast<uint32_t>(m_entries.size()));
    bytes += g_headSize;
    for (const NodeEntry& entry : m_entries) {
        if (storeEntry(bytes, entry) != 0) {
            return -1;
        }
        bytes += g_entrySize;
    }
    return writeStatusRecord(*file, record);
}

int DayStatus::readStatus(File* file, int64_t length, DayStatus& status) {
    if (file == nullptr) {
        return LOG_FAIL("param invalid, null");
    }
    uint64_t stored = 0;
    Buffer body;
    if (const int result = readStatusRecord(*file, length, stored, body); result != 0) {
        return result;
    }
    const uint64_t computed = urlKey(body.span());
    if (stored != computed) {
        LOG_ERROR("crc not match %llu %llu", static_cast<unsigned long long>(stored),
                  static_cast<unsigned long long>(computed));
        return g_damaged;
    }
    return status.parse(body.span()) == 0 ? 0 : g_damaged;
}

int DayStatus::parse(ByteView body) {
    if (body.size() < g_headSize) {
        return LOG_FAIL("len %d too short", static_cast<int32_t>(body.size()));
    }
    m_newCounter = loadLittle<int32_t>(body.data());
    if (m_newCounter < -1 || m_newCounter > g_lastNewDayNumber) {
        return LOG_FAIL("counter invalid %d", m_newCounter);
    }
    m_totalCount = loadLittle<uint64_t>(body.data() + 4);
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

void DayStatus::print() const {
    if (m_entries.empty()) {
        LOG_DEBUG("day status empty, not print");
        return;
    }
    LOG_DEBUG("newCounter %d, totalCount %llu", m_newCounter,
              static_cast<unsigned long long>(m_totalCount));
    for (const NodeEntry& entry : m_entries) {
        LOG_DEBUG("%s %d %lld", entry.path.c_str(), entry.fileNumber,
                  static_cast<long long>(entry.offset));
    }
}

void DayStatus::setNewCounter(int32_t counter) {
    if (counter < -1) {
        LOG_INFO("counter invalid %d", counter);
    }
    m_newCounter = counter;
}

const NodeEntry* DayStatus::findEntry(const std::string& path) const {
    const auto found = std::ranges::find(m_entries, path, &NodeEntry::path);
    return found == m_entries.end() ? nullptr : &*found;
}

void DayStatus::updateIfNewer(const NodeEntry& entry) {
    const auto found = std::ranges::find(m_entries, entry.path, &NodeEntry::path);
    if (found == m_entries.end()) {
        m_entries.push_back(entry);
    } else if (entry.fileNumber > found->fileNumber) {
        *found = entry;
    } else if (entry.fileNumber < found->fileNumber) {
        LOG_INFO("find %s, but id error new fileid %d, old fileid %d", entry.path.c_str(),
                 entry.fileNumber, found->fileNumber);
    }
}

int32_t DayStatus::date() const {
    return m_entries.empty() ? 0 : names::getDateOfPath(m_entries.front().path);
}

size_t DayStatus::writtenSize() const {
    return g_statusFrameSize + g_headSize + g_entrySize * m_entries.size();
}

} // namespace kestrine
