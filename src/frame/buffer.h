// A byte buffer whose memory is not touched before it is used, so that a large buffer of a small
// file costs address space only.
#pragma once

#include "frame/bytes.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace kestrine {

class Buffer {
public:
    // 0, or -1 when the memory is not to be had (the old content is gone either way).
    [[nodiscard]] int allocate(size_t size) {
        m_bytes.reset(static_cast<uint8_t*>(std::malloc(size)));
        m_size = m_bytes ? size : 0;
        return m_bytes ? 0 : -1;
    }
    void release() {
        m_bytes.reset();
        m_size = 0;
    }
    [[nodiscard]] bool empty() const { return m_size == 0; }
    [[nodiscard]] size_t size() const { return m_size; }
    [[nodiscard]] uint8_t* data() { return m_bytes.get(); }
    [[nodiscard]] const uint8_t* data() const { return m_bytes.get(); }
    [[nodiscard]] std::span<uint8_t> span() { return {m_bytes.get(), m_size}; }
    [[nodiscard]] ByteView span() const { return {m_bytes.get(), m_size}; }

private:
    struct Free {
        void operator()(uint8_t* bytes) const { std::free(bytes); }
    };
    std::unique_ptr<uint8_t, Free> m_bytes;
    size_t m_size = 0;
};

namespace Util {

// Allocates `size` bytes into `*buffer`. 0 or -1.
[[nodiscard]] int assureNotEmpty(int32_t size, Buffer* buffer);

} // namespace Util
} // namespace kestrine
