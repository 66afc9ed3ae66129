// What both kinds of status record (status.h, where the format is drawn) have in common: the frame,
// the total and the list of entries, and the sequence of writing and reading.
#pragma once

#include "frame/bytes.h"
#include "platform/platform.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine {

constexpr uint32_t g_maxStatusLength = 4194304;
constexpr size_t g_statusFrameSize = 12;
constexpr size_t g_statusPathSize = 260; // with its terminating zero

// `Kind` derives from it and has
//   g_headSize             bytes of its body before the total
//   g_checked              whether a record with a wrong checksum is damaged
//   g_noFile               what is reported when there is no file
//   storeHead, loadHead    its head to and from bytes: 0, or -1 for one that no file may have
// `Entry` has a path and
//   g_size                 its size on disk, path included
//   store, load            what stands behind the path to and from bytes
template <typename Kind, typename Entry>
class StatusRecord {
public:
    // Writes the record at the file's position. 0 or -1; a status without entries, or one that
    // could not be read back, is refused.
    [[nodiscard]] int writeStatus(File* file) const;
    // Reads a record at the file's position; `length` bytes at most belong to it. Entries are
    // appended. 0; g_damaged (reading.h); -1.
    [[nodiscard]] static int readStatus(File* file, int64_t length, Kind& status);
    // Fills the fields from a body; a trailing partial entry is reported and left out.
    [[nodiscard]] int parse(ByteView body);

    [[nodiscard]] uint64_t totalCount() const { return m_totalCount; }
    [[nodiscard]] const std::vector<Entry>& entries() const { return m_entries; }
    [[nodiscard]] std::vector<Entry>& entries() { return m_entries; }
    // Bytes that the written record takes.
    [[nodiscard]] size_t writtenSize() const;
    // Of the record read: the checksum is that of the body.
    [[nodiscard]] bool checksumFits() const { return m_checksumFits; }
    // Of the record read: the body holds the number of entries that it names, and nothing else.
    [[nodiscard]] bool lengthFits() const { return m_lengthFits; }

protected:
    uint64_t m_totalCount = 0;
    std::vector<Entry> m_entries;

private:
    // The total and the number of entries take 12 bytes.
    static constexpr size_t entriesAt() { return Kind::g_headSize + 12; }

    bool m_checksumFits = true;
    bool m_lengthFits = true;
};

} // namespace kestrine
