#include "storage/status_record.h"

#include "frame/buffer.h"
#include "frame/log.h"
#include "storage/reading.h"
#include "storage/status.h"
#include "storage/url_key.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace kestrine {
namespace {

constexpr size_t g_lengthAt = 8; // in the frame
constexpr size_t g_numberAt = 8; // of the entries, behind the head

// A record with a body of `length` bytes, all zero. 0 or -1.
[[nodiscard]] int allocateRecord(size_t length, Buffer& record) {
    if (length > g_maxStatusLength) {
        return LOG_FAIL("len out of range [0, %d] %d", static_cast<int32_t>(g_maxStatusLength),
                        static_cast<int32_t>(length));
    }
    if (record.allocate(g_statusFrameSize + length) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    // What paths leave unused of their fields is written, too, and enters the checksum.
    std::ranges::fill(record.span(), uint8_t{0});
    return 0;
}

// Fills in the frame around the complete body, and writes the record. 0 or -1.
[[nodiscard]] int writeRecord(File& file, Buffer& record) {
    const ByteView body = record.span().subspan(g_statusFrameSize);
    // Over the body alone, which is complete by now.
    storeLittle(record.data(), urlKey(body));
    storeLittle(record.data() + g_lengthAt, static_cast<uint32_t>(body.size()));
    if (file.write(record.span()) != static_cast<int64_t>(record.size())) {
        return LOG_FAIL("fwrite fail, errno %d", errno);
    }
    return 0;
}

// The stored checksum and the body of a record of at most `length` bytes. 0, g_damaged or -1.
[[nodiscard]] int readRecord(File& file, int64_t length, uint64_t& checksum, Buffer& body) {
    // Where a read that is tried again must begin.
    const int64_t start = file.tell();
    if (start < 0) {
        return LOG_FAIL("_ftelli64 fail, errno %d", errno);
    }
    std::array<uint8_t, g_statusFrameSize> frame{};
    if (const int result = readExactly(file, start, frame); result != 0) {
        return result;
    }
    checksum = loadLittle<uint64_t>(frame.data());
    const auto len = loadLittle<uint32_t>(frame.data() + g_lengthAt);
    // Refused before memory is asked for: a damaged length may name four gigabytes.
    const int64_t bound =
        len > g_maxStatusLength ? g_maxStatusLength : length - int64_t{g_statusFrameSize};
    if (int64_t{len} > bound) {
        LOG_ERROR("len out of range [0, %d] %d", static_cast<int32_t>(bound),
                  static_cast<int32_t>(len));
        return g_damaged;
    }
    if (body.allocate(len) != 0) {
        return LOG_FAIL("malloc fail, errno %d", errno);
    }
    return readExactly(file, start + int64_t{g_statusFrameSize}, body.span());
}

// Into a zeroed field. 0 or -1.
[[nodiscard]] int storePath(uint8_t* field, const std::string& path) {
    // One byte stays zero, at which readers end the text.
    if (path.size() >= g_statusPathSize) {
        return LOG_FAIL("path too long %d %s", static_cast<int32_t>(path.size()), path.c_str());
    }
    std::ranges::copy(path, field);
    return 0;
}

} // namespace

template <typename Kind, typename Entry>
size_t StatusRecord<Kind, Entry>::writtenSize() const {
    return g_statusFrameSize + entriesAt() + Entry::g_size * m_entries.size();
}

template <typename Kind, typename Entry>
int StatusRecord<Kind, Entry>::writeStatus(File* file) const {
    if (file == nullptr) {
        return LOG_FAIL("%s", Kind::g_noFile);
    }
    // It would belong to no account and no date: every reader would take the file for damaged.
    if (m_entries.empty()) {
        return LOG_FAIL("device info size 0");
    }
    Buffer record;
    if (allocateRecord(writtenSize() - g_statusFrameSize, record) != 0) {
        return -1;
    }
    uint8_t* bytes = record.data() + g_statusFrameSize;
    if (static_cast<const Kind&>(*this).storeHead(bytes) != 0) {
        return -1;
    }
    storeLittle(bytes + Kind::g_headSize, m_totalCount);
    storeLittle(bytes + Kind::g_headSize + g_numberAt, static_cast<uint32_t>(m_entries.size()));
    bytes += entriesAt();
    for (const Entry& entry : m_entries) {
        if (storePath(bytes, entry.path) != 0) {
            return -1;
        }
        entry.store(bytes + g_statusPathSize);
        bytes += Entry::g_size;
    }
    return writeRecord(*file, record);
}

template <typename Kind, typename Entry>
int StatusRecord<Kind, Entry>::readStatus(File* file, int64_t length, Kind& status) {
    if (file == nullptr) {
        return LOG_FAIL("%s", Kind::g_noFile);
    }
    uint64_t stored = 0;
    Buffer body;
    if (const int result = readRecord(*file, length, stored, body); result != 0) {
        return result;
    }
    const uint64_t computed = urlKey(body.span());
    status.m_checksumFits = stored == computed;
    // One that is not checked here is parsed all the same, and its reader asks `checksumFits`.
    if (Kind::g_checked && !status.m_checksumFits) {
        LOG_ERROR("crc not match %llu %llu", static_cast<unsigned long long>(stored),
                  static_cast<unsigned long long>(computed));
        return g_damaged;
    }
    return status.parse(body.span()) == 0 ? 0 : g_damaged;
}

template <typename Kind, typename Entry>
int StatusRecord<Kind, Entry>::parse(ByteView body) {
    if (body.size() < entriesAt()) {
        return LOG_FAIL("len %d too short", static_cast<int32_t>(body.size()));
    }
    if (static_cast<Kind&>(*this).loadHead(body.data()) != 0) {
        return -1;
    }
    m_totalCount = loadLittle<uint64_t>(body.data() + Kind::g_headSize);
    const auto number = loadLittle<uint32_t>(body.data() + Kind::g_headSize + g_numberAt);
    size_t start = entriesAt();
    // The stored number is compared, not used: entries are taken as far as the body goes, so that a
    // damaged number cannot lead beyond it.
    m_lengthFits = body.size() - start == number * Entry::g_size;
    for (; body.size() - start >= Entry::g_size; start += Entry::g_size) {
        Entry& entry = m_entries.emplace_back();
        // Without the field's last byte: a text that fills the field has no zero.
        entry.path = fixedText(body.subspan(start, g_statusPathSize - 1));
        entry.load(body.data() + start + g_statusPathSize);
    }
    if (start != body.size()) {
        LOG_INFO("error start %d len %d", static_cast<int32_t>(start),
                 static_cast<int32_t>(body.size()));
    }
    return 0;
}

template class StatusRecord<DayStatus, NodeEntry>;
template class StatusRecord<WeekMonStatus, DateEntry>;

} // namespace kestrine
