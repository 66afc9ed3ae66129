// Reading bytes of a file such that an error is told from damage.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <span>

namespace kestrine {

// A read's result besides 0 and -1: the bytes are wrong, and so is the file. With -1 a call failed,
// which says nothing about the bytes.
constexpr int g_damaged = 2;

// Reads from the given offset, where the file stands already; a call that fails for a passing
// reason is tried again. As File::read.
[[nodiscard]] int64_t readFrom(File& file, int64_t offset, std::span<uint8_t> buffer);

// Fills the buffer, as `readFrom`. 0; g_damaged when the file ends before; -1.
[[nodiscard]] int readExactly(File& file, int64_t offset, std::span<uint8_t> buffer);

} // namespace kestrine
