// The program's own reader of INI files.
#pragma once

#include "frame/blockalloc.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine {

// Sections and keys are found by exact, case-sensitive comparison. A key that is repeated within a
// section has the value that stands first; a repeated section is searched in its first place.
class IniFile {
public:
    // Reads the file. 0 read, or unchanged (by its time of modification) since the last load of the
    // same name; -1 not readable; -2 a section or key could not be stored. Names of more than 254
    // characters are read at every load. A failure leaves nothing loaded.
    [[nodiscard]] int load(const std::string& fileName);
    // The value's text; none when section or key is missing.
    [[nodiscard]] std::optional<std::string_view> find(std::string_view section,
                                                       std::string_view key) const;
    // The value as a decimal integer, 0 when missing or empty.
    [[nodiscard]] int32_t integer(std::string_view section, std::string_view key) const;
    // Drops what was loaded.
    void free();

private:
    struct Key {
        uint64_t hash = 0;
        std::string_view name; // name and value lie in the pool
        std::string_view value;
    };
    struct Section {
        uint64_t hash = 0;
        std::string_view name;
        std::vector<Key> keys;
    };

    [[nodiscard]] int parse(std::string_view text);
    [[nodiscard]] int parseLine(std::string_view line);
    [[nodiscard]] int openSection(std::string_view line);
    [[nodiscard]] int addKey(std::string_view line);

    std::string m_fileName;
    int64_t m_modified = 0;
    std::vector<Section> m_sections;
    BlockPool m_pool;
};

} // namespace kestrine
