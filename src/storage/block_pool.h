// Buffers of blocks that are not in use, for the next files to be opened: the system clears every
// fresh page before it is touched, and not one that is used again.
#pragma once

#include "frame/buffer.h"

namespace kestrine::blockPool {

// A buffer of that size; its contents are left-overs. 0 or -1.
[[nodiscard]] int take(size_t size, Buffer& buffer);

// Takes a buffer back. A few of the largest size are kept, others go back to the system.
void giveBack(Buffer buffer);

} // namespace kestrine::blockPool
