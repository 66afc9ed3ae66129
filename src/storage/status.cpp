#include "storage/status.h"

#include "frame/log.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {

int DayStatus::storeHead(uint8_t* head) const {
    storeLittle(head, m_newCounter);
    return checkCounter();
}

int DayStatus::loadHead(const uint8_t* head) {
    m_newCounter = loadLittle<int32_t>(head);
    return checkCounter();
}

int DayStatus::checkCounter() const {
    if (m_newCounter < -1 || m_newCounter > g_lastNewDayNumber) {
        return LOG_FAIL("counter invalid %d", m_newCounter);
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

void WeekMonStatus::setTotalCount(uint64_t count) {
    if (count > INT64_MAX) {
        LOG_INFO("error counter %d", static_cast<int32_t>(count));
    }
    m_totalCount = count;
}

bool WeekMonStatus::atEnd() const {
    return m_index >= std::ssize(m_entries);
}

const DateEntry* WeekMonStatus::current() const {
    if (m_index < 0 || atEnd()) {
        LOG_ERROR("m_index %d size %d", m_index, static_cast<int32_t>(m_entries.size()));
        return nullptr;
    }
    return &m_entries[static_cast<size_t>(m_index)];
}

std::string WeekMonStatus::getNewPath() const {
    const DateEntry* const entry = current();
    return entry == nullptr ? std::string() : entry->path;
}

int32_t WeekMonStatus::getNewCounter() const {
    const DateEntry* const entry = current();
    if (entry != nullptr && entry->counter < -1) {
        LOG_ERROR("m_counter -1");
    }
    return entry == nullptr ? -1 : entry->counter;
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
    const auto found = std::ranges::find_if(m_entries, [date](const DateEntry& entry) {
        return names::lastComponent(entry.path) == date;
    });
    return found == m_entries.end() ? -1 : found->counter;
}

} // namespace kestrine
