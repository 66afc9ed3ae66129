#include "frame/ini_file.h"

#include "frame/bytes.h"
#include "frame/text.h"
#include "platform/platform.h"

#include <algorithm>

namespace kestrine {

namespace {

constexpr size_t g_maxFileName = 254; // longer names are loaded but not remembered
constexpr size_t g_maxLine = 65535;   // with its line feed; the rest counts as a line of its own

constexpr std::string_view g_whiteSpace = " \t\r\n\v\f";

// FNV-1a.
uint64_t hashOf(std::string_view text) {
    uint64_t hash = 0xcbf29ce484222325U;
    for (const uint8_t byte : asBytes(text)) {
        hash = (hash ^ byte) * 0x100000001b3U;
    }
    return hash;
}

template <typename Named>
const Named* findNamed(const std::vector<Named>& all, std::string_view name) {
    const uint64_t hash = hashOf(name);
    const auto found = std::find_if(all.begin(), all.end(), [&](const Named& one) {
        // Most names are told apart by their hash alone.
        return one.hash == hash && one.name == name;
    });
    return found == all.end() ? nullptr : &*found;
}

int readText(const std::string& fileName, std::string& text) {
    const std::unique_ptr<File> file = platform().open(fileName, OpenMode::Read);
    if (!file) {
        return -1;
    }
    std::vector<uint8_t> buffer(65536);
    int64_t length = 0;
    while ((length = file->read(buffer)) > 0) {
        text += asText(ByteView(buffer).first(static_cast<size_t>(length)));
    }
    return length < 0 ? -1 : file->close();
}

// Copies a text into the pool. None when the pool has no room.
std::optional<std::string_view> keep(BlockPool& pool, std::string_view text) {
    uint8_t* bytes = pool.allocate(text.size());
    if (bytes == nullptr) {
        return std::nullopt;
    }
    std::copy(text.begin(), text.end(), bytes);
    return asText({bytes, text.size()});
}

} // namespace

int IniFile::load(const std::string& fileName) {
    FileInfo info;
    const bool known = platform().info(fileName, info) == 0;
    if (known && !m_fileName.empty() && fileName == m_fileName && info.modified == m_modified) {
        return 0;
    }
    // Whatever comes next: what was loaded before must not pass for what the file says now.
    free();
    std::string text;
    if (!known || readText(fileName, text) != 0) {
        return -1;
    }
    const int result = parse(text);
    if (result == 0 && fileName.size() <= g_maxFileName) {
        m_fileName = fileName;
        m_modified = info.modified; // from before reading: a change in between is seen next time
    }
    return result;
}

int IniFile::parse(std::string_view text) {
    constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
    if (text.starts_with(byteOrderMark)) {
        text.remove_prefix(byteOrderMark.size());
    }
    while (!text.empty()) {
        // A last line without a line feed ends with the text.
        const size_t lineEnd = std::min(text.find('\n'), text.size() - 1) + 1;
        const std::string_view line = text.substr(0, std::min(lineEnd, g_maxLine));
        text.remove_prefix(line.size());
        if (const int result = parseLine(line); result != 0) {
            return result;
        }
    }
    return 0;
}

int IniFile::parseLine(std::string_view line) {
    line.remove_prefix(std::min(line.find_first_not_of(g_whiteSpace), line.size()));
    if (line.empty() || line.front() == ';' || line.front() == '#') {
        return 0;
    }
    if (line.front() == '[') {
        return openSection(line);
    }
    // Keys before the first section belong to none.
    return m_sections.empty() ? 0 : addKey(line);
}

// The name ends at a ']' directly before the line's end; otherwise all the rest is the name.
int IniFile::openSection(std::string_view line) {
    line.remove_prefix(1);
    // In a last line without a line feed the ']' therefore is part of the name.
    const size_t end = std::min(line.find("]\r"), line.find("]\n"));
    const auto name = keep(m_pool, line.substr(0, end));
    if (!name) {
        return -2;
    }
    m_sections.push_back({hashOf(*name), *name, {}});
    return 0;
}

// One blank on each side of the first '=' belongs to neither key nor value.
int IniFile::addKey(std::string_view line) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return 0;
    }
    std::string_view key = line.substr(0, equals);
    std::string_view value = line.substr(equals + 1);
    if (key.ends_with(' ')) {
        key.remove_suffix(1);
    }
    if (value.starts_with(' ')) {
        value.remove_prefix(1);
    }
    // Blanks at the end belong to the value, only the line's end does not.
    value = value.substr(0, value.find_last_not_of("\r\n") + 1);
    const auto keptKey = keep(m_pool, key);
    const auto keptValue = keep(m_pool, value);
    if (!keptKey || !keptValue) {
        return -2;
    }
    m_sections.back().keys.push_back({hashOf(*keptKey), *keptKey, *keptValue});
    return 0;
}

std::optional<std::string_view> IniFile::find(std::string_view section,
                                              std::string_view key) const {
    const Section* foundSection = findNamed(m_sections, section);
    const Key* foundKey = foundSection ? findNamed(foundSection->keys, key) : nullptr;
    return foundKey ? std::optional(foundKey->value) : std::nullopt;
}

int32_t IniFile::integer(std::string_view section, std::string_view key) const {
    return leadingInteger(find(section, key).value_or(std::string_view()));
}

void IniFile::free() {
    m_fileName.clear();
    // Before the pool, into which their names and values point.
    m_sections.clear();
    m_pool.release();
}

} // namespace kestrine
