// The 64-bit key of a host, by which everything is counted, sorted, merged and found.
#pragma once

#include "frame/bytes.h"

#include <cstdint>

namespace kestrine {

// Bob Jenkins' lookup3 hashlittle2, as published: two 32-bit results from the bytes and two seeds.
void hashlittle2(const uint8_t* bytes, size_t size, uint32_t* primary, uint32_t* secondary);

// (primary << 32) + secondary with both seeds 0. The same for any alignment of the bytes; every
// difference in a byte (letter case too) is another key. Also the checksum of status records.
[[nodiscard]] uint64_t urlKey(ByteView bytes);

// The same in half the time, where `g_keyReadsOn` bytes behind these can be read. They do not enter
// the key.
constexpr size_t g_keyReadsOn = 11;
[[nodiscard]] uint64_t urlKeyReadingOn(ByteView bytes);

} // namespace kestrine
