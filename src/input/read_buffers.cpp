#include "input/read_buffers.h"

#include "frame/data_path.h"
#include "frame/log.h"

#include <cerrno>

namespace kestrine {

int ReadBuffers::getInstance(ReadBuffers** instance) {
    static ReadBuffers buffers;
    const LoggerSettings settings;
    for (Buffer* const buffer : {&buffers.stored, &buffers.raw, &buffers.records}) {
        // Those that were had before a failure stay, and the rest is asked for again.
        if (buffer->empty() &&
            buffer->allocate(static_cast<size_t>(settings.defaultBlockSize)) != 0) {
            return LOG_FAIL("malloc fail, errno %d", errno);
        }
    }
    *instance = &buffers;
    return 0;
}

} // namespace kestrine
