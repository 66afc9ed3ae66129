#include "damages.h"

#include "fault_platform.h"
#include "storage/block_header.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kestrine::test {

namespace fs = std::filesystem;

Bytes bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void putBytes(const std::string& path, const Bytes& bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    std::copy(bytes.begin(), bytes.end(), std::ostreambuf_iterator<char>(file));
}

namespace {

size_t endOfBlocks(const Bytes& file) {
    return static_cast<size_t>(loadLittle<int64_t>(file.data() + file.size() - 8));
}

// Lowest and highest bit of every field of a file with one compressed block.
std::vector<Damage> flips(const Bytes& file, bool weekMonth) {
    struct Field {
        const char* name;
        size_t offset;
        size_t width;
        bool found = true;
    };
    const size_t end = endOfBlocks(file);
    const size_t body = end + 12;
    const size_t path = body + (weekMonth ? 12 : 16);
    const size_t pathEnd = static_cast<size_t>(
        std::find(file.begin() + static_cast<ptrdiff_t>(path), file.end(), 0) - file.begin());
    std::vector<Field> fields = {
        {"least key", 0, 8},
        {"greatest key", 8, 8},
        {"block's total", 16, 8},
        {"block's size", 24, 4},
        {"raw size", 28, 4},
        {"flag", 32, 4},
        {"number of records", 36, 4},
        {"start of the data", 40, 2},
        {"records", 40 + (end - 40) / 2, 1},
        {"end of the data", end - 4, 4},
        {"checksum", end, 8, !weekMonth},
        {"length", end + 8, 4},
        {"end position", file.size() - 8, 8},
        {"path's start", path, 1, !weekMonth},
        {"path's end", pathEnd - 1, 1},
        {"number of the entry", path + 260, 4},
    };
    if (weekMonth) {
        fields.push_back({"total", body, 8});
        fields.push_back({"number of entries", body + 8, 4, false});
    } else {
        fields.push_back({"counter", body, 4});
        fields.push_back({"total", body + 4, 8});
        fields.push_back({"number of entries", body + 12, 4});
        fields.push_back({"offset of the entry", path + 264, 8});
    }
    std::vector<Damage> damages;
    for (const Field& field : fields) {
        for (const bool high : {false, true}) {
            const size_t at = field.offset + (high ? field.width - 1 : 0);
            const uint8_t bit = high ? 0x80 : 0x01;
            damages.push_back({std::string(high ? "highest" : "lowest") + " bit of " + field.name,
                               [at, bit](Bytes& bytes) { bytes[at] ^= bit; }, field.found, high});
        }
    }
    return damages;
}

std::vector<Damage> cuts(const Bytes& file) {
    const size_t end = endOfBlocks(file);
    std::vector<Damage> damages;
    for (const size_t length :
         {size_t{0}, size_t{1}, size_t{20}, size_t{40}, size_t{41}, 40 + (end - 40) / 2, end - 1,
          end, end + 6, end + 12, end + 13, end + 40, file.size() - 9, file.size() - 8,
          file.size() - 4, file.size() - 1}) {
        damages.push_back(
            {"cut to " + std::to_string(length), [length](Bytes& bytes) { bytes.resize(length); }});
    }
    damages.push_back({"all zeros", [](Bytes& bytes) { bytes.assign(bytes.size(), 0); }});
    damages.push_back({"second half zeros", [](Bytes& bytes) {
                           std::fill(bytes.begin() + static_cast<ptrdiff_t>(bytes.size() / 2),
                                     bytes.end(), uint8_t{0});
                       }});
    damages.push_back({"zeros behind", [](Bytes& bytes) { bytes.resize(bytes.size() + 100); }});
    damages.push_back({"no file", nullptr});
    return damages;
}

} // namespace

bool isCompressed(const std::string& path) {
    const Bytes bytes = bytesOf(path);
    return bytes.size() > BlockHeader::g_size && loadLittle<uint32_t>(bytes.data() + 32) == 1;
}

std::vector<Damage> damagesOf(const std::string& path) {
    const Bytes bytes = bytesOf(path);
    const bool weekMonth = path.ends_with("weekcrcsort") || path.ends_with("moncrcsort");
    std::vector<Damage> damages = flips(bytes, weekMonth);
    std::ranges::move(cuts(bytes), std::back_inserter(damages));
    return damages;
}

void damageSomehow(const std::string& path, std::mt19937_64& random) {
    if (path.empty()) {
        return;
    }
    Bytes bytes = bytesOf(path);
    if (bytes.size() < 60 || random() % 4 == 0) {
        bytes.resize(random() % (bytes.size() + 1));
    } else if (random() % 8 == 0) {
        fs::remove(path);
        return;
    } else {
        // Blocks that are compressed, and the end position.
        const size_t end = std::min(endOfBlocks(bytes), bytes.size() - 8);
        const bool inBlocks = end > 40 && bytes[32] == 1 && random() % 4 != 0;
        const size_t at = inBlocks ? random() % end : bytes.size() - 1 - random() % 8;
        bytes[at] ^= static_cast<uint8_t>(1 + random() % 255);
    }
    putBytes(path, bytes);
}

std::string anyFile(const std::string& directory, std::mt19937_64& random) {
    std::vector<std::string> files;
    std::error_code none;
    for (const auto& entry : fs::recursive_directory_iterator(directory, none)) {
        const std::string path = entry.path().generic_string();
        if (entry.is_regular_file() && path.find("/debug/") == std::string::npos) {
            files.push_back(path);
        }
    }
    std::sort(files.begin(), files.end());
    return files.empty() ? std::string() : files[random() % files.size()];
}

void makeOld(const std::string& directory) {
    const auto then = std::chrono::file_clock::from_sys(
        std::chrono::sys_seconds(std::chrono::seconds(FaultPlatform::g_now - 40 * 86400)));
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        fs::last_write_time(entry.path(), then);
    }
}

} // namespace kestrine::test
