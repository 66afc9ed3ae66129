// What blocks of records are stored with: one stream at a time, behind one process-wide buffer for
// its stored form.
#pragma once

#include "frame/buffer.h"

#include <cstdint>

namespace kestrine {

// The buffer is lent until the next call that fills it: the result of `compress`, or the bytes that
// a reader puts there before it uncompresses or copies them. Used by the work thread alone.
class Compress {
public:
    // Stores the instance, whose buffer of 4 MiB is allocated on first use. 0 or -1.
    [[nodiscard]] static int getInstance(Compress** instance);

    [[nodiscard]] int init();
    // At the fastest level, into the buffer. -1 also when the compressed form would be longer than
    // the source (no message then): the caller writes the data as it is.
    [[nodiscard]] int compress(ByteView source, ByteView* data);
    // Into the caller's buffer; `length` is what the source decodes to. 0; g_damaged (reading.h)
    // when the source is damaged or does not fit; -1 without memory.
    [[nodiscard]] int unCompress(ByteView source, std::span<uint8_t> raw, size_t* length);

    [[nodiscard]] std::span<uint8_t> buffer() { return m_buffer.span(); }

private:
    Buffer m_buffer;
};

} // namespace kestrine
