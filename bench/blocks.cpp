// The blocks of files as they are stored.
#include "codecs.h"
#include "input/loader_block.h"
#include "measure.h"
#include "storage/url_file.h"

#include <filesystem>

namespace kestrine::bench {

namespace {

constexpr uint32_t g_largestLogBlock = 2097152;

void addLogBlocks(const std::string& path, std::vector<Block>& blocks) {
    const std::unique_ptr<File> file = platform().open(path, OpenMode::Read);
    require(file != nullptr, "open a log file");
    const int64_t end = file->size();
    LogFileHeader fileHeader;
    require(getFileHeader(*file, fileHeader) == 0, "read the head of a log file");
    for (int64_t offset = g_logFileHeaderSize; offset < end;) {
        LogBlockHeader header;
        require(readBlockHeaderNoWait(*file, offset, header, g_largestLogBlock) == 0,
                "read the head of a log block");
        offset += static_cast<int64_t>(g_logBlockHeaderSize);
        Block block{std::vector<uint8_t>(header.storedSize()), header.flag != 0};
        require(readNoWait(*file, offset, block.bytes) == 0, "read a log block");
        offset += header.storedSize();
        blocks.push_back(std::move(block));
    }
}

} // namespace

void forEachBlock(const std::string& urlFile, const UseBlock& use) {
    UrlFile file;
    require(file.openToRead(urlFile, g_dayStatusType) == 0, "open a URL file");
    BlockHeader header;
    int result = file.readBlockHeader(header);
    for (; result == 0; result = file.readBlockHeader(header)) {
        ByteView stored;
        require(file.readBlockData(stored) == 0, "read a block");
        use(stored, header.flag != 0);
    }
    require(result == 1, "read all blocks");
}

std::vector<Block> blocksOf(const std::string& urlFile) {
    std::vector<Block> blocks;
    forEachBlock(urlFile, [&blocks](ByteView stored, bool compressed) {
        blocks.push_back({{stored.begin(), stored.end()}, compressed});
    });
    return blocks;
}

std::vector<Block> logBlocksBelow(const std::string& directory) {
    std::vector<Block> blocks;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.path().extension() == ".dat") {
            addLogBlocks(entry.path().generic_string(), blocks);
        }
    }
    require(!blocks.empty(), "find log files");
    return blocks;
}

} // namespace kestrine::bench
