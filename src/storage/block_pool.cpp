#include "storage/block_pool.h"

#include "storage/url_record_block.h"

#include <array>
#include <utility>

namespace kestrine::blockPool {

namespace {

std::array<Buffer, 4> g_idle; // some of them empty

} // namespace

int take(size_t size, Buffer& buffer) {
    for (Buffer& idle : g_idle) {
        if (idle.size() == size) {
            buffer = std::exchange(idle, Buffer());
            return 0;
        }
    }
    return buffer.allocate(size);
}

// Only buffers of the full size are kept; what finds no place is freed when this returns.
void giveBack(Buffer buffer) {
    for (Buffer& idle : g_idle) {
        if (idle.empty() && buffer.size() == size_t{g_blockCapacity}) {
            idle = std::move(buffer);
            return;
        }
    }
}

} // namespace kestrine::blockPool
