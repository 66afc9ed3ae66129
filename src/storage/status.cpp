#include "storage/status.h"

#include "frame/log.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {

// What no reader would take is not written: the file is given up before it has a final name.
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
    // Reported only; a status with such a counter cannot be written.
    if (counter < -1) {
        LOG_INFO("counter invalid %d", counter);
    }
    m_newCounter = counter;
}

// The number of entries where there is none of the path.
size_t DayStatus::placeOf(const std::string& path) const {
    // Entries that were added since the last look. Of a path that stands twice the first counts.
    for (; m_indexed < m_entries.size(); ++m_indexed) {
        m_places.try_emplace(m_entries[m_indexed].path, m_indexed);
    }
    const auto found = m_places.find(path);
    if (found == m_places.end()) {
        return m_entries.size();
    }
    if (m_entries[found->second].path != path) { // reordered since
        // Once is enough: with the index made anew every place is right.
        m_places.clear();
        m_indexed = 0;
        return placeOf(path);
    }
    return found->second;
}

const NodeEntry* DayStatus::findEntry(const std::string& path) const {
    const size_t place = placeOf(path);
    return place == m_entries.size() ? nullptr : &m_entries[place];
}

void DayStatus::updateIfNewer(const NodeEntry& entry) {
    const size_t place = placeOf(entry.path);
    if (place == m_entries.size()) {
        m_entries.push_back(entry);
        return;
    }
    // A position never goes back: the logs before it are counted. With equal numbers nothing
    // changes, since offsets are informative.
    NodeEntry& known = m_entries[place];
    if (entry.fileNumber > known.fileNumber) {
        known = entry;
    } else if (entry.fileNumber < known.fileNumber) {
        LOG_INFO("find %s, but id error new fileid %d, old fileid %d", entry.path.c_str(),
                 entry.fileNumber, known.fileNumber);
    }
}

// One entry speaks for all, which are of one date.
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
    // By the date alone: the tree may have been moved since the entry's path was written.
    const std::string_view date = names::lastComponent(path);
    const auto found = std::ranges::find_if(m_entries, [date](const DateEntry& entry) {
        return names::lastComponent(entry.path) == date;
    });
    return found == m_entries.end() ? -1 : found->counter;
}

} // namespace kestrine
