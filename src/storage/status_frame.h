// What both kinds of status record have in common: the frame around the body, and the path fields
// of the entries.
#pragma once

#include "frame/buffer.h"
#include "platform/platform.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrine {

constexpr size_t g_statusPathSize = 260; // path field of an entry, with its terminating zero

// Makes `record` ready for a frame and a body of `bodyLength` bytes, all zero. 0, or -1 when the
// body is longer than a reader accepts.
[[nodiscard]] int allocateStatus(size_t bodyLength, Buffer& record);
// Fills in the frame of the record, whose body is complete, and writes it. 0 or -1.
[[nodiscard]] int writeStatusRecord(File& file, Buffer& record);
// Reads a record of at most `length` bytes: the stored checksum, not verified, and the body. 0,
// g_damaged (reading.h) or -1.
[[nodiscard]] int readStatusRecord(File& file, int64_t length, uint64_t& checksum, Buffer& body);

// Copies the path into a zeroed field. 0, or -1 when it is longer than the field.
[[nodiscard]] int storeStatusPath(uint8_t* field, std::string_view path);
// The path in a field, at most 259 characters.
[[nodiscard]] std::string loadStatusPath(const uint8_t* field);

} // namespace kestrine
