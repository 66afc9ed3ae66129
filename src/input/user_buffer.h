// Payloads of user-buffer records, and the host that each visits.
//
//   payload offset size field
//               64    4 type value, stored with the counted host
//               68    4 kind code; 31: the record carries no host
//               72    4 net action; 2, 3 and 4 are valid
//              362    4 length of the content text
//              370      content text, in one of two forms
//
//   XML         begins with "<?xm" in any letter case; the host stands between the first
//               <_f n="host"> and the next </_f>
//   field list  anything else; fields of a 32-bit length n and n bytes "name:value" and one more
//               byte; the host is the value of the first field named "host"
//
// Integers are little-endian. Results are views into the caller's bytes.
#pragma once

#include "frame/bytes.h"

#include <cstdint>
#include <string_view>

namespace kestrine {

constexpr size_t g_payloadTypeOffset = 64;
constexpr size_t g_payloadKindOffset = 68;
constexpr size_t g_payloadActionOffset = 72;
constexpr size_t g_payloadContentLengthOffset = 362;
constexpr size_t g_payloadContentOffset = 370;
constexpr uint32_t g_kindWithoutHost = 31;

constexpr std::string_view g_hostOpenTag = "<_f n=\"host\">";
constexpr std::string_view g_hostCloseTag = "</_f>";

// Takes the entry at `offset` of a delivered record stream (32-bit length and payload, as
// LoaderReader writes it) and moves `offset` behind it. False at the end of the stream, or when the
// entry does not lie inside it.
[[nodiscard]] bool nextEntry(ByteView stream, size_t& offset, ByteView& payload);

enum class HostResult {
    Found,        // `host` is not empty
    None,         // the record is to be skipped
    Unterminated, // g_hostCloseTag is missing; `host` is the text in which it was looked for
};

// Finds the host of a payload and the record's type value. A content length that runs past the
// payload is cut at its end.
[[nodiscard]] HostResult findHost(ByteView payload, std::string_view& host, uint32_t& type);

} // namespace kestrine
