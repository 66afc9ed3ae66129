#include "input/account_file.h"

#include "frame/bytes.h"
#include "frame/log.h"
#include "platform/platform.h"
#include "tree/names.h"

#include <cerrno>
#include <span>

namespace kestrine {

namespace {

constexpr uint32_t g_magic = 0x87512546;
constexpr uint32_t g_olderMagic = 0x89156984;
constexpr size_t g_headerSize = 16;
constexpr size_t g_nameOffset = 40;
constexpr size_t g_nameSize = 36;
constexpr int32_t g_mostRecords = 65536; // far above any installation; 370 MB

bool readAll(File& file, std::span<uint8_t> buffer) {
    return file.read(buffer) == static_cast<int64_t>(buffer.size());
}

bool writeAll(File& file, std::span<const uint8_t> data) {
    return file.write(data) == static_cast<int64_t>(data.size());
}

} // namespace

std::string_view AccountRecord::accountName() const {
    return fixedText(ByteView(bytes).subspan(g_nameOffset, g_nameSize));
}

int CMlAccountFile::loadAddRecords() {
    m_records.clear();
    const std::unique_ptr<File> file = platform().open(m_path, OpenMode::Read);
    if (!file) {
        LOG_ERROR("open %s fail, errno %d", m_path.c_str(), errno);
        return g_openFailed;
    }
    int32_t count = 0;
    int result = readHeader(*file, count);
    if (result == 0) {
        result = readRecords(*file, count);
    }
    // Closed before the rename that replaces it.
    if (file->close() != 0) {
        LOG_ERROR("close %s fail, errno %d", m_path.c_str(), errno);
    }
    // Only what was read to its end: a part written back would lose the other accounts.
    if (result == 0 && m_version == g_olderVersion && save() != 0) {
        LOG_ERROR("rewrite %s in the current layout fail, its accounts are used all the same",
                  m_path.c_str());
    }
    return result;
}

int CMlAccountFile::readHeader(File& file, int32_t& count) {
    std::array<uint8_t, g_headerSize> header{};
    if (!readAll(file, header)) {
        LOG_ERROR("read header of %s fail, errno %d", m_path.c_str(), errno);
        return g_headerUnreadable;
    }
    const auto magic = loadLittle<uint32_t>(header.data());
    if (magic != g_magic && magic != g_olderMagic) {
        LOG_ERROR("magic of %s invalid %X", m_path.c_str(), magic);
        return g_magicUnknown;
    }
    // The magic alone tells the layout; the version field is only written.
    m_version = magic == g_magic ? g_version : g_olderVersion;
    count = loadLittle<int32_t>(header.data() + 4);
    m_reserved = loadLittle<uint32_t>(header.data() + 12);
    return 0;
}

int CMlAccountFile::readRecords(File& file, int32_t count) {
    // The layouts agree in the bytes that the older one has; what it lacks stays zero.
    const size_t size = m_version == g_version ? AccountRecord::g_size : AccountRecord::g_olderSize;
    for (int32_t i = 0; i < count; ++i) {
        AccountRecord record;
        // A damaged number must not fill the memory.
        if (i == g_mostRecords) {
            LOG_ERROR("%d records in %s, at most %d", count, m_path.c_str(), g_mostRecords);
            return g_recordUnreadable;
        }
        if (!readAll(file, std::span(record.bytes).first(size))) {
            LOG_ERROR("read record %d of %d from %s fail, errno %d", i, count, m_path.c_str(),
                      errno);
            return g_recordUnreadable;
        }
        m_records.push_back(record);
    }
    return 0;
}

int CMlAccountFile::save() const {
    const std::string temp = names::tempOf(m_path);
    if (writeTo(temp) != 0) {
        LOG_ERROR("write %s fail, errno %d", temp.c_str(), errno);
        if (platform().exists(temp) && platform().removeFile(temp) != 0) {
            LOG_ERROR("remove %s fail, errno %d", temp.c_str(), errno);
        }
        return -1;
    }
    // Its content is on stable storage by now, so the name never stands for half a file.
    if (platform().rename(temp, m_path) != 0) {
        LOG_ERROR("rename %s to %s fail, errno %d", temp.c_str(), m_path.c_str(), errno);
        (void)platform().removeFile(temp); // the next call overwrites it
        return -1;
    }
    if (platform().syncDirectory(std::string(names::parentOf(m_path))) != 0) {
        return LOG_FAIL("sync directory of %s fail, errno %d", m_path.c_str(), errno);
    }
    return 0;
}

int CMlAccountFile::writeTo(const std::string& path) const {
    const std::unique_ptr<File> file = platform().open(path, OpenMode::Truncate);
    if (!file) {
        return -1;
    }
    std::array<uint8_t, g_headerSize> header{};
    storeLittle(header.data(), g_magic);
    storeLittle(header.data() + 4, static_cast<int32_t>(m_records.size()));
    storeLittle(header.data() + 8, g_version);
    storeLittle(header.data() + 12, m_reserved);
    if (!writeAll(*file, header)) {
        return -1;
    }
    for (const AccountRecord& record : m_records) {
        if (!writeAll(*file, record.bytes)) {
            return -1;
        }
    }
    // Synced although it could be converted again: the accounts are another product's data.
    return file->sync() == 0 && file->close() == 0 ? 0 : -1;
}

} // namespace kestrine
