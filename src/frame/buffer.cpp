#include "frame/buffer.h"

#include "frame/log.h"

#include <cerrno>

namespace kestrine {

int Util::assureNotEmpty(int32_t size, Buffer* buffer) {
    if (buffer == nullptr || size <= 0) {
        return LOG_FAIL("param invalid");
    }
    if (buffer->allocate(static_cast<size_t>(size)) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    return 0;
}

} // namespace kestrine
