// The logging product's record of its accounts, "config/syncaccount.dat" (frame/install_root.h).
//
//   header  offset size field
//                0    4 magic    0x87512546, older layout 0x89156984
//                4    4 count    records that follow, signed
//                8    4 version  0x10010, older layout 0x3030
//               12    4 reserved
//               16      records, 5,662 bytes each, older layout 5,278
//
//   record  offset size field
//               40   36 account name, ends at its first zero byte
//           all other bytes belong to the logging product and are carried unchanged
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>

namespace kestrine {

class File;

struct AccountRecord {
    static constexpr size_t g_size = 5662;
    static constexpr size_t g_olderSize = 5278;

    std::array<uint8_t, g_size> bytes{};

    [[nodiscard]] std::string_view accountName() const;
};

class CMlAccountFile {
public:
    static constexpr uint32_t g_version = 0x10010;
    static constexpr uint32_t g_olderVersion = 0x3030;

    // Results of loadAddRecords besides 0.
    static constexpr int g_openFailed = 1;
    static constexpr int g_headerUnreadable = 11;
    static constexpr int g_magicUnknown = 12;
    static constexpr int g_recordUnreadable = 13;

    explicit CMlAccountFile(std::string path) : m_path(std::move(path)) {}
    virtual ~CMlAccountFile() = default;

    // Replaces the records in hand by those of the file; on failure those before the damage are in
    // hand. A file in the older layout is converted and written back, so that this happens once;
    // one that cannot be written back is reported, and its records are good all the same.
    [[nodiscard]] int loadAddRecords();

    // Writes the records in the current layout: 0 or -1. The old file is replaced by one rename, so
    // a kill leaves either of them, and perhaps the file's name + ".temp", which the next call
    // overwrites.
    [[nodiscard]] int save() const;

    [[nodiscard]] const std::list<AccountRecord>& records() const { return m_records; }
    [[nodiscard]] std::list<AccountRecord>& records() { return m_records; }
    // Layout of the file that was loaded: g_version or g_olderVersion.
    [[nodiscard]] uint32_t version() const { return m_version; }

private:
    [[nodiscard]] int readHeader(File& file, int32_t& count);
    [[nodiscard]] int readRecords(File& file, int32_t count);
    [[nodiscard]] int writeTo(const std::string& path) const;

    std::string m_path;
    std::list<AccountRecord> m_records; // in file order
    uint32_t m_version = g_version;
    uint32_t m_reserved = 0;
};

} // namespace kestrine
