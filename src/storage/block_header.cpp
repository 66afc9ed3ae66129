#include "storage/block_header.h"

#include "frame/log.h"

namespace kestrine {

int Util::validateBlockHeader(const BlockHeader* header) {
    if (header == nullptr) {
        return LOG_FAIL("param null");
    }
    if (header->flag > 1) {
        return LOG_FAIL("flag invalid %d", static_cast<int32_t>(header->flag));
    }
    if (header->count <= 0) {
        return LOG_FAIL("count invalid %d", header->count);
    }
    if (header->totalCount <= 0) {
        return LOG_FAIL("count invalid %d", static_cast<int32_t>(header->totalCount));
    }
    const bool fits = header->flag == 1 ? header->blockSize <= header->rawSize
                                        : header->blockSize == header->rawSize;
    if (header->blockSize <= 0 || !fits) {
        return LOG_FAIL("blockSize invalid %d rawSize %d", header->blockSize, header->rawSize);
    }
    return 0;
}

} // namespace kestrine
