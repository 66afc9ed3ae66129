#include "input/loader_block.h"

#include "frame/bytes.h"
#include "frame/log.h"
#include "storage/reading.h"

#include <array>
#include <cerrno>

namespace kestrine {

int getFileHeader(File& file, LogFileHeader& header) {
    std::array<uint8_t, g_logFileHeaderSize> bytes{};
    const int64_t count = readFrom(file, 0, bytes);
    if (count != static_cast<int64_t>(bytes.size())) {
        LOG_ERROR("read file header fail sizoef(fh) %d nread %d", static_cast<int>(bytes.size()),
                  static_cast<int>(count));
        return count < 0 ? g_readFailed : -1;
    }
    header.magic = loadLittle<uint32_t>(bytes.data());
    if (header.magic != g_logFileMagic) {
        return LOG_FAIL("file header not match, flag, E:%X F:%X", g_logFileMagic, header.magic);
    }
    return 0;
}

int validateBlockHeader(const LogBlockHeader& header, uint32_t maxSize) {
    if (header.type > 6) {
        LOG_INFO("block header type not exist! type:%u", header.type);
        return -1;
    }
    if (header.blockSize > maxSize || header.rawSize > maxSize) {
        LOG_INFO("block header size invalid, blocksize %u rawSize %u defaultSize %u",
                 header.blockSize, header.rawSize, maxSize);
        return -1;
    }
    if (header.flag > 1) {
        LOG_INFO("block header error, compress flag %u not exist!", header.flag);
        return -1;
    }
    return 0;
}

int readNoWait(File& file, int64_t offset, std::span<uint8_t> buffer) {
    const int64_t count = readFrom(file, offset, buffer);
    if (count < 0) {
        return g_readFailed;
    }
    return count == static_cast<int64_t>(buffer.size()) ? 0 : g_readUnfinished;
}

int readBlockHeaderNoWait(File& file, int64_t offset, LogBlockHeader& header, uint32_t maxSize) {
    std::array<uint8_t, g_logBlockHeaderSize> bytes{};
    const int result = readNoWait(file, offset, bytes);
    if (result != 0) {
        // A file that ends here is not reported as an error: its writer may not have finished.
        if (result == g_readFailed) {
            LOG_ERROR("readNoWait fail errno %d", errno);
        }
        return result;
    }
    header.type = loadLittle<uint32_t>(bytes.data());
    header.blockSize = loadLittle<uint32_t>(bytes.data() + 4);
    header.rawSize = loadLittle<uint32_t>(bytes.data() + 8);
    header.flag = loadLittle<uint32_t>(bytes.data() + 12);
    if (validateBlockHeader(header, maxSize) != 0) {
        LOG_INFO("validateBlockHeader fail");
        return -1;
    }
    return 0;
}

} // namespace kestrine
