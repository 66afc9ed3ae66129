// Memory in whole pages: comes from the system zeroed, takes room only where it was touched, and
// goes back to the system when it is released. For everything large that lives for a while; an
// allocator of small pieces would keep much of it.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>

namespace kestrine {

// Null, with errno, when there is none. `size` is not 0, and the same at the release.
[[nodiscard]] void* allocatePages(size_t size);
void releasePages(void* pages, size_t size);

// An array of plain values in pages of its own; a small one comes from the heap, where it costs no
// call of the system.
template <typename T>
class PageArray {
public:
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

    PageArray() = default;
    PageArray(PageArray&& other) noexcept
        : m_values(std::move(other.m_values)), m_size(std::exchange(other.m_size, 0)) {}
    PageArray& operator=(PageArray&& other) noexcept {
        m_values = std::move(other.m_values);
        m_size = std::exchange(other.m_size, 0);
        return *this;
    }

    // All bytes zero. 0, or -1 when the memory is not to be had; the old content is gone either
    // way.
    [[nodiscard]] int allocate(size_t size) {
        release();
        if (size == 0) {
            return 0;
        }
        if (size > std::numeric_limits<size_t>::max() / sizeof(T)) {
            errno = ENOMEM;
            return -1;
        }
        const size_t bytes = size * sizeof(T);
        void* const memory = bytes < g_fewestBytes ? std::calloc(1, bytes) : allocatePages(bytes);
        m_values = {static_cast<T*>(memory), Release{bytes}};
        m_size = m_values ? size : 0;
        return m_values ? 0 : -1;
    }
    void release() {
        m_values.reset();
        m_size = 0;
    }
    [[nodiscard]] bool empty() const { return m_size == 0; }
    [[nodiscard]] size_t size() const { return m_size; }
    [[nodiscard]] T* data() { return m_values.get(); }
    [[nodiscard]] const T* data() const { return m_values.get(); }
    [[nodiscard]] T& operator[](size_t i) { return m_values.get()[i]; }
    [[nodiscard]] const T& operator[](size_t i) const { return m_values.get()[i]; }
    [[nodiscard]] std::span<T> span() { return {m_values.get(), m_size}; }
    [[nodiscard]] std::span<const T> span() const { return {m_values.get(), m_size}; }

private:
    static constexpr size_t g_fewestBytes = 65536; // in pages

    struct Release {
        size_t bytes = 0;
        void operator()(T* values) const {
            if (bytes < g_fewestBytes) {
                std::free(values);
            } else {
                releasePages(values, bytes);
            }
        }
    };

    std::unique_ptr<T, Release> m_values;
    size_t m_size = 0;
};

} // namespace kestrine
