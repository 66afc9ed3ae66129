// Log records: their payloads, their content text, and the records that a reader must skip.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace worldgen {

//  Payload of a user-buffer record, as far as it is given a meaning here
//  offset  size  field
//       0     4  time, seconds since 1970
//       4     4  serial number
//       8     4  device number
//      12     4  client address
//      16     4  server address
//      20     2  client port
//      22     2  server port
//      64     4  type value
//      68     4  kind code
//      72     4  net action
//      76    32  user name
//     108    64  computer name
//     172    64  process name
//     362     4  content length
//     370   ...  content text
inline constexpr std::size_t serialOffset = 4;
inline constexpr std::size_t deviceOffset = 8;
inline constexpr std::size_t clientOffset = 12;
inline constexpr std::size_t serverOffset = 16;
inline constexpr std::size_t portsOffset = 20;
inline constexpr std::size_t typeOffset = 64;
inline constexpr std::size_t kindOffset = 68;
inline constexpr std::size_t netActionOffset = 72;
inline constexpr std::size_t userOffset = 76;
inline constexpr std::size_t computerOffset = 108;
inline constexpr std::size_t processOffset = 172;
inline constexpr std::size_t contentLengthOffset = 362;
inline constexpr std::size_t contentOffset = 370;

inline constexpr std::uint32_t userBufferRecord = 10;
inline constexpr std::uint32_t kindWithoutHost = 31;
inline constexpr std::size_t recordHeadBytes = 12; // record type, payload length, CRC-32

enum class ContentForm { List, Xml };

// One field of the field-list form: 32-bit length, name, colon, value, one trailing zero byte.
std::string listField(std::string_view name, std::string_view value);

// A whole content text around a host, with further fields before and after it.
std::string listContent(std::string_view host);
std::string xmlContent(std::string_view host);

struct PayloadFields {
    std::string content;
    std::uint32_t type = 1;
    std::uint32_t kind = 1;
    std::uint32_t netAction = 2;
    std::optional<std::uint32_t> contentLength; // stored instead of the content's real length
};

std::string makePayload(const PayloadFields& fields);

// The payload of a record that counts as one visit.
std::string visitPayload(std::string_view host, std::uint32_t type,
                         ContentForm form = ContentForm::List);

struct Record {
    std::string payload;
    std::uint32_t recordType = userBufferRecord;
    std::optional<std::uint32_t> length; // stored instead of the payload's real length
    std::optional<std::uint32_t> crc;    // stored instead of the payload's real CRC-32
};

// Appends head and payload to the raw bytes of a block.
void appendRecord(std::string& raw, const Record& record);

// Ways in which a well-formed record is no visit. A reader passes over each of them and goes on
// with the record behind it.
enum class SkipKind {
    OtherRecordType,   // not a user buffer, though it holds a host
    InvalidNetAction,  // 0, 1, 5 or all ones
    EmptyPayload,      // no byte
    BelowNetAction,    // ends before the net action is complete (75 bytes)
    ShortPayload,      // ends behind the net action (76 bytes)
    NoContent,         // exactly the 370 bytes before the content
    KindWithoutHost,   // kind code 31, though it holds a host
    ZeroContentLength, // content length 0, though bytes with a host follow
    HostBeyondContent, // content length ends before the host field
    NoHostList,        // a field list without the field
    NoHostXml,         // an XML text without the element
    EmptyHostList,     // a host field whose value is empty
    BareHostList,      // a host field that lacks even its trailing byte
    EmptyHostXml,      // an empty host element
    UnclosedXml,       // a host element without its closing tag
    CapitalHostList,   // a field named with a capital letter
    FieldPastEndList,  // a field before the host that runs past the end of the text
    HugeFieldList,     // the same with a length near 2^32
};
inline constexpr int skipKindCount = int(SkipKind::HugeFieldList) + 1;

// `host` and `type` are what would be counted if the record were not skipped; `variant` chooses
// among the forms of one kind.
Record makeSkipped(SkipKind kind, std::string_view host, std::uint32_t type,
                   std::uint32_t variant = 0);

} // namespace worldgen
