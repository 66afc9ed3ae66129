#include "storage/block_header.h"

#include "frame/log.h"

namespace kestrine {

int Util::validateBlockHeader(const BlockHeader* header) {
    if (header == nullptr) {
        LOG_ERROR("param null");
        return -1;
    }
    if (header->flag > 1) {
        LOG_ERROR("flag invalid %d", static_cast<int32_t>(header->flag));
        return -1;
    }
    if (header->count <= 0) {
        LOG_ERROR("count invalid %d", header->count);
        return -1;
    }
    if (header->totalCount <= 0) {
        LOG_ERROR("count invalid %d", static_cast<int32_t>(header->totalCount));
        return -1;
    }
    const bool fits = header->flag == 1 ? header->blockSize <= header->rawSize
                                        : header->blockSize == header->rawSize;
    if (header->blockSize <= 0 || !fits) {
        LOG_ERROR("blockSize invalid %d rawSize %d", header->blockSize, header->rawSize);
        return -1;
    }
    return 0;
}

} // namespace kestrine
