#include "low_space.h"

#include "tree/free_space.h"

namespace kestrine::build {

int LowSpaceNotice::freeSpace(const std::string& path, uint64_t& bytes) {
    const int ret = ForwardingPlatform::freeSpace(path, bytes);
    if (ret == 0 && path == m_root && !m_told && bytes >> 20 <= g_minFreeSpaceMiB) {
        m_told = true;
        writeConsole("urlbuild: " + path + ": more than " + std::to_string(g_minFreeSpaceMiB) +
                         " MiB must be free on its volume; waits until they are\n",
                     true);
    }
    return ret;
}

} // namespace kestrine::build
