// zlib's one-shot functions behind one process-wide output buffer of 4 MiB.
#pragma once

#include "frame/buffer.h"

#include <cstdint>

namespace kestrine {

// The result of either operation lies in the instance's buffer until the next call of either.
// Used by the work thread alone.
class Compress {
public:
    // Stores the instance, whose buffer is allocated on first use. 0 or -1.
    [[nodiscard]] static int getInstance(Compress** instance);

    [[nodiscard]] int init();
    // Level 1. -1 also when the compressed form would be longer than the source (no message then):
    // the caller writes the data as it is.
    [[nodiscard]] int compress(const uint8_t* source, int32_t sourceLength, ByteView* data);
    // -1 when the source is damaged or its raw form is larger than 4 MiB.
    [[nodiscard]] int unCompress(const uint8_t* source, int32_t sourceLength, ByteView* data);

private:
    Buffer m_buffer;
};

} // namespace kestrine
