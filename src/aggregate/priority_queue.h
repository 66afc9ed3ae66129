// A bounded binary min-heap that keeps the N largest elements of a stream.
#pragma once

#include "storage/url_record.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <span>
#include <utility>
#include <vector>

namespace kestrine {

// An element: a record and, beside its pointer, what orders it. Most comparisons are of elements
// that lie beside each other, and touch no record.
struct RankedRecord {
    uint64_t count = 0;
    uint64_t key = 0;
    UrlRecord* record = nullptr;

    RankedRecord() = default;
    explicit RankedRecord(UrlRecord* ranked)
        : count(ranked->count), key(ranked->key), record(ranked) {}
    [[nodiscard]] bool operator==(const RankedRecord&) const = default;
};

// Count order (as signed), in which, of equal counts, the higher key is the smaller element: what a
// queue keeps does not depend on the order in which it was pushed.
struct LessByCountAndKey {
    [[nodiscard]] bool operator()(const RankedRecord& a, const RankedRecord& b) const {
        const auto countOfA = static_cast<int64_t>(a.count);
        const auto countOfB = static_cast<int64_t>(b.count);
        return countOfA != countOfB ? countOfA < countOfB : a.key > b.key;
    }
};

template <typename T, typename Less>
class CPriorityQueue {
public:
    using Free = void (*)(T);

    CPriorityQueue() = default;
    virtual ~CPriorityQueue() { clear(); }
    CPriorityQueue(const CPriorityQueue&) = delete;
    CPriorityQueue& operator=(const CPriorityQueue&) = delete;

    // A queue of at most `capacity` elements, which it does not own; it takes memory as it fills.
    // 0, or -1 for a capacity of 0 and when there is no memory to begin with.
    [[nodiscard]] int init(uint32_t capacity) {
        if (capacity == 0) {
            return -1;
        }
        clear();
        m_capacity = capacity;
        m_free = nullptr;
        if (reserve(g_firstSlots) != 0) {
            m_capacity = 0;
            return -1;
        }
        m_array.assign(1, T{});
        return 0;
    }
    // From now on the queue frees what it drops and what it holds when it is cleared.
    void ownElements(Free free) { m_free = free; }

    // 0: added, nothing dropped; 1: the queue was full and `dropped` left it, which may be the new
    // element itself; -1: no element given, or no memory for it, and nothing has changed. An
    // element equal to the smallest held is refused.
    [[nodiscard]] int push(T element, T& dropped) {
        dropped = T{};
        if (element == T{} || m_capacity == 0) {
            return -1;
        }
        if (size() < m_capacity) {
            if (m_array.size() == m_array.capacity() && reserve(2 * m_array.size()) != 0) {
                return -1;
            }
            m_array.push_back(element);
            siftUp(size(), element);
            return 0;
        }
        dropped = element;
        if (Less()(m_array[1], element)) {
            dropped = m_array[1];
            sink(1, element);
        }
        if (m_free != nullptr) {
            m_free(dropped);
        }
        return 1;
    }
    // The smallest held, or none.
    [[nodiscard]] T top() const { return size() == 0 ? T{} : m_array[1]; }
    // Removes the smallest, without freeing it.
    void pop() {
        if (size() == 0) {
            return;
        }
        const T last = m_array.back();
        m_array.pop_back();
        if (size() > 0) {
            sink(1, last);
        }
    }
    void clear() {
        for (size_t i = 1; m_free != nullptr && i < m_array.size(); ++i) {
            m_free(m_array[i]);
        }
        m_array.resize(m_array.empty() ? 0 : 1);
    }
    [[nodiscard]] uint32_t size() const {
        return m_array.empty() ? 0 : static_cast<uint32_t>(m_array.size() - 1);
    }
    // All that it holds, in no order.
    [[nodiscard]] std::span<const T> elements() const {
        return std::span(m_array).subspan(m_array.empty() ? 0 : 1);
    }
    [[nodiscard]] bool full() const { return size() == m_capacity; }

private:
    static constexpr size_t g_firstSlots = 16;

    // Room for `slots`, but for no more than the queue can ever use. 0 or -1.
    [[nodiscard]] int reserve(size_t slots) {
        try {
            m_array.reserve(std::min(slots, size_t{m_capacity} + 1));
        } catch (const std::bad_alloc&) {
            return -1;
        }
        return 0;
    }
    void siftUp(size_t slot, T element) {
        while (slot > 1 && Less()(element, m_array[slot / 2])) {
            m_array[slot] = m_array[slot / 2];
            slot /= 2;
        }
        m_array[slot] = element;
    }
    void sink(size_t slot, T element) {
        const size_t last = size();
        for (size_t child = 2 * slot; child <= last; child = 2 * slot) {
            if (child < last && Less()(m_array[child + 1], m_array[child])) {
                ++child;
            }
            if (!Less()(m_array[child], element)) {
                break;
            }
            m_array[slot] = m_array[child];
            slot = child;
        }
        m_array[slot] = element;
    }

    std::vector<T> m_array; // slot 0 is never used, the root lies in slot 1
    uint32_t m_capacity = 0;
    Free m_free = nullptr; // set: the queue owns its elements
};

using RecordQueue = CPriorityQueue<RankedRecord, LessByCountAndKey>;

} // namespace kestrine
