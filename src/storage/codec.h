// zlib streams and CRC-32, by the fastest library that the build has: what the blocks of URL files
// and of log files are stored with.
//
//   build                          decodes, CRC-32    encodes
//   default, libdeflate installed  libdeflate         zlib, so that files come out byte for byte
//                                                     as with zlib alone
//   -DKESTRINE_CODEC=libdeflate    libdeflate         libdeflate
//   -DKESTRINE_CODEC=zlib          zlib               zlib; also where there is no libdeflate
//
// Each reads what the others write. What a stream is refused with is always zlib's word: when the
// other library does not take one, zlib decodes it again, so that results do not depend on the
// build.
#pragma once

#include "frame/bytes.h"

#include <cstdint>
#include <span>

namespace kestrine::codec {

// Decodes one stream; bytes behind its end are ignored. `length` is what it decodes to. A result
// of zlib: Z_OK; Z_DATA_ERROR, also for a stream that is cut short; Z_BUF_ERROR, it does not fit;
// Z_MEM_ERROR. May be called by several threads at once, unlike `encode`.
[[nodiscard]] int decode(ByteView stored, std::span<uint8_t> raw, size_t& length);

// Encodes at the fastest level. A result of zlib: Z_OK, Z_BUF_ERROR or Z_MEM_ERROR.
[[nodiscard]] int encode(ByteView raw, std::span<uint8_t> stored, size_t& length);

[[nodiscard]] uint32_t crc32(ByteView bytes);

// "libdeflate" or "zlib".
[[nodiscard]] const char* decoder();
[[nodiscard]] const char* encoder();

} // namespace kestrine::codec
