// Headers of the logging product's ".dat" files and of the blocks in them.
//
//   file    offset size field                       block   offset size field
//                0    4 magic 0xABCDABCD                         0    4 type, 0 to 6
//                4    8 label, not always                        4    4 blockSize, bytes stored if
//                       zero-terminated                                 compressed
//               12   16 not interpreted                          8    4 rawSize, bytes uncompressed
//               28      blocks                                  12    4 flag: 0 raw (rawSize bytes
//                                                                      follow), 1 zlib (blockSize)
//                                                               16   16 not interpreted
//                                                               32      payload
//
//   record in an uncompressed payload
//           offset size field
//                0    4 type, 10: user buffer
//                4    4 length of the payload
//                8    4 CRC-32 of the payload
//               12      payload
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <span>

namespace kestrine {

constexpr uint32_t g_logFileMagic = 0xABCDABCD;
constexpr size_t g_logFileHeaderSize = 28;
constexpr size_t g_logBlockHeaderSize = 32;
constexpr size_t g_logRecordHeadSize = 12;
constexpr uint32_t g_userBufferRecord = 10;

// Results of the reads that do not wait for a writer who has not finished.
constexpr int g_readFailed = -9982;     // the system reports an error
constexpr int g_readUnfinished = -9999; // the file ends before the bytes asked for

struct LogFileHeader {
    uint32_t magic = 0;
};

struct LogBlockHeader {
    uint32_t type = 0;
    uint32_t blockSize = 0;
    uint32_t rawSize = 0;
    uint32_t flag = 0;

    // Bytes of payload in the file.
    [[nodiscard]] uint32_t storedSize() const { return flag == 0 ? rawSize : blockSize; }
};

// Reads and tests the header at the start of the file, where it stands. 0, -1 (invalid, or not
// there yet) or g_readFailed.
[[nodiscard]] int getFileHeader(File& file, LogFileHeader& header);

// 0, or -1 when a field has no valid value; `maxSize` bounds both sizes.
[[nodiscard]] int validateBlockHeader(const LogBlockHeader& header, uint32_t maxSize);

// Fills the buffer from the offset, where the file stands: 0, g_readFailed or g_readUnfinished.
[[nodiscard]] int readNoWait(File& file, int64_t offset, std::span<uint8_t> buffer);

// Reads and tests the header at the offset, where the file stands. 0, -1 (invalid), g_readFailed or
// g_readUnfinished.
[[nodiscard]] int readBlockHeaderNoWait(File& file, int64_t offset, LogBlockHeader& header,
                                        uint32_t maxSize);

} // namespace kestrine
