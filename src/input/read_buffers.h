// The buffers through which log files are read: one set for the process, since one account is read
// at a time.
#pragma once

#include "frame/buffer.h"

namespace kestrine {

struct ReadBuffers {
    Buffer stored;  // a block as it lies in the file
    Buffer raw;     // and uncompressed
    Buffer records; // delivered from it

    // Stores the set, each buffer as large as the log writer's largest block; allocated on first
    // use. 0 or -1.
    [[nodiscard]] static int getInstance(ReadBuffers** instance);
};

} // namespace kestrine
