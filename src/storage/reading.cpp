#include "storage/reading.h"

#include "frame/log.h"
#include "frame/retry.h"

#include <cerrno>

namespace kestrine {

int64_t readFrom(File& file, int64_t offset, std::span<uint8_t> buffer) {
    bool again = false;
    // A try that failed may have moved the position, so each further one begins at the offset.
    return triedAgain([&]() -> int64_t {
        if (again && file.seek(offset) != 0) {
            return -1;
        }
        again = true;
        return file.read(buffer);
    });
}

int readExactly(File& file, int64_t offset, std::span<uint8_t> buffer) {
    const int64_t got = readFrom(file, offset, buffer);
    if (got == static_cast<int64_t>(buffer.size())) {
        return 0;
    }
    LOG_ERROR("fread fail, need %d ret %d errno %d", static_cast<int32_t>(buffer.size()),
              static_cast<int32_t>(got), errno);
    // Callers ask only for bytes that the file promises: where it ends before them it was cut.
    return got < 0 ? -1 : g_damaged;
}

} // namespace kestrine
