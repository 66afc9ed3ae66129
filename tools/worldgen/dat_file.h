// Log files: blocks, whole files in memory for tests, and a streaming writer for large worlds.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "worldgen/record.h"

namespace worldgen {

//  File header (28 bytes)                     Block header (32 bytes), directly before each payload
//  offset  size  field                        offset  size  field
//       0     4  magic 0xABCDABCD                  0     4  block type, 0 to 6
//       4     8  label                             4     4  bytes of payload stored
//      12    16  free                              8     4  bytes of payload after decompression
//                                                 12     4  flag: 0 stored raw, 1 compressed
//                                                 16    16  free
inline constexpr std::uint32_t fileMagic = 0xABCDABCDu;
inline constexpr std::size_t fileHeaderBytes = 28;
inline constexpr std::size_t blockHeaderBytes = 32;
inline constexpr std::uint32_t largestBlock = 2097152; // of stored and of raw bytes

// ROOT/data/log_data/ACCOUNT/devid_DEVICE/DATE, the date directory of a node.
std::filesystem::path dateDir(const std::filesystem::path& root, std::string_view account,
                              int device, int date);

// The place of log file `number` of the node with that date directory: A/(number / 100)/number.dat.
std::filesystem::path datPath(const std::filesystem::path& dateDirectory, int number);

// One block. With only `raw` filled it is a good one; the optional members make a damaged one.
struct Block {
    std::string raw; // records, back to back
    bool compressed = false;
    std::uint32_t blockType = 1;
    std::optional<std::uint32_t> blockSize;
    std::optional<std::uint32_t> rawSize;
    std::optional<std::uint32_t> flag;
    std::optional<std::string> payload; // the stored bytes, instead of those that follow from `raw`

    Block& add(const Record& record);
    Block& visit(std::string_view host, std::uint32_t type, int times = 1,
                 ContentForm form = ContentForm::List);

    std::string encode() const; // header and stored bytes
};

// A whole file in memory. Starts as a good header without blocks; everything can be damaged before
// it is written.
class DatFile {
public:
    DatFile();

    DatFile& add(const Block& block) { return append(block.encode()); }
    DatFile& append(std::string_view bytes);
    DatFile& truncate(std::size_t size); // a larger size changes nothing
    DatFile& patch(std::size_t offset, std::string_view bytes);
    DatFile& magic(std::uint32_t value);

    const std::string& bytes() const { return m_bytes; }

    // Replaces file `number` of the node, making its directories. Throws std::runtime_error when
    // that fails.
    void write(const std::filesystem::path& dateDirectory, int number) const;

private:
    std::string m_bytes;
};

// Makes blocks with zlib level 1, keeping its memory from one block to the next.
class BlockPacker {
public:
    BlockPacker();
    ~BlockPacker();

    // The block of these raw bytes, header included; valid until the next call.
    const std::string& pack(std::string_view raw, bool compressed, std::uint32_t blockType);

private:
    struct Deflater;
    std::unique_ptr<Deflater> m_deflater;
    std::string m_block;
};

// Writes a file block by block. It appears under its number when it is complete (a rename), so that
// a world may be appended to while its reader runs. Failures throw std::runtime_error.
class DatWriter {
public:
    DatWriter(const std::filesystem::path& dateDirectory, int number);

    void write(std::string_view blockBytes);
    std::uint64_t close(); // returns the size of the file

private:
    std::filesystem::path m_path;
    std::filesystem::path m_workPath;
    std::ofstream m_stream;
    std::uint64_t m_size = 0;
};

} // namespace worldgen
