#include "harness/url_blocks.h"

#include "harness/target.h"
#include "storage/url_key.h"

#include <zlib.h>

namespace kestrine::fuzz {

namespace {

constexpr size_t g_trailerSize = 8;

// Where the file's trailer says that its blocks end.
uint64_t endOfBlocks(const std::string& path) {
    const Bytes& bytes = disk().content(path);
    return loadLittle<uint64_t>(bytes.data() + bytes.size() - g_trailerSize);
}

// Reads the data behind a header that was just read; `position` is where the header begins and is
// moved behind the data. False when the data is refused.
bool readData(UrlFile& file, const BlockHeader& header, uint64_t& position, ByteView& data) {
    if (file.readBlockData(data) != 0) {
        require(file.broken(), "damage marks the file broken");
        return false;
    }
    require(data.size() == static_cast<size_t>(header.blockSize), "data as long as it should be");
    position += BlockHeader::g_size + data.size();
    require(position <= endOfBlocks(file.path()), "nothing of the trailer is taken for a block");
    return true;
}

// Takes the block's records into `records`. False when one of them, or the header, is not right.
bool takeBlock(UrlFile& file, const BlockHeader& header, Records& records) {
    UrlRecordBlock& block = file.block();
    uint64_t total = 0;
    uint64_t last = 0;
    for (int32_t i = 0; i < header.count; ++i) {
        UrlRecordView record;
        if (!block.hasCurrent() || block.getCurrentUrlRecord(record) != 0 || record.count == 0 ||
            record.count > INT64_MAX - total || (i == 0 && record.key != header.minKey) ||
            (!records.empty() && record.key <= records.rbegin()->first)) {
            return false;
        }
        total += record.count;
        last = record.key;
        records[record.key] = {record.count, record.type, std::string(record.url)};
        block.advance(record);
    }
    return last == header.maxKey && total == static_cast<uint64_t>(header.totalCount);
}

// Block headers as far as blocks follow each other.
void repairBlocks(std::span<uint8_t> blocks) {
    while (blocks.size() > BlockHeader::g_size) {
        BlockHeader header;
        header.load(blocks.first<BlockHeader::g_size>());
        header.flag &= 1;
        header.count = std::max(header.count, 1);
        header.totalCount = std::max<int64_t>(header.totalCount, 1);
        const auto left = static_cast<int64_t>(blocks.size() - BlockHeader::g_size);
        header.blockSize = static_cast<int32_t>(std::clamp<int64_t>(header.blockSize, 1, left));
        header.rawSize =
            header.flag == 0 ? header.blockSize : std::max(header.rawSize, header.blockSize);
        header.store(blocks.first<BlockHeader::g_size>());
        blocks = blocks.subspan(BlockHeader::g_size + static_cast<size_t>(header.blockSize));
    }
}

} // namespace

std::string rawData(const Records& records) {
    std::string data;
    for (const auto& [key, record] : records) {
        const UrlRecordView view{key, record.count, record.type, record.url};
        Bytes bytes(view.size());
        view.store(bytes.data());
        data += asText(bytes);
    }
    return data;
}

StoredBlock storedBlock(ByteView data) {
    StoredBlock block;
    BlockHeader& header = block.header;
    UrlRecordView record;
    for (ByteView rest = data; parseRecord(rest, record) == 0; rest = rest.subspan(record.size())) {
        header.minKey = std::min(header.minKey, record.key);
        header.maxKey = std::max(header.maxKey, record.key);
        header.totalCount =
            static_cast<int64_t>(static_cast<uint64_t>(header.totalCount) + record.count);
        ++header.count;
    }
    block.data.assign(data.begin(), data.end());
    header.blockSize = header.rawSize = static_cast<int32_t>(data.size());
    return block;
}

void compressBlock(StoredBlock& block) {
    Bytes packed(compressBound(block.data.size()));
    uLongf length = packed.size();
    require(compress2(packed.data(), &length, block.data.data(), block.data.size(), 1) == Z_OK,
            "compresses");
    if (length <= block.data.size()) {
        packed.resize(length);
        block.data = std::move(packed);
        block.header.flag = 1;
        block.header.blockSize = static_cast<int32_t>(length);
    }
}

Bytes repairedUrlFile(ByteView bytes) {
    Bytes file(bytes.begin(), bytes.end());
    if (file.size() < g_trailerSize + g_statusFrameSize) {
        return file;
    }
    const size_t trailer = file.size() - g_trailerSize;
    const size_t largest = trailer - g_statusFrameSize;
    const size_t end = std::min<uint64_t>(loadLittle<uint64_t>(file.data() + trailer), largest);
    storeLittle(file.data() + trailer, uint64_t{end});
    uint8_t* const status = file.data() + end;
    const size_t length = std::min<size_t>(loadLittle<uint32_t>(status + 8), largest - end);
    storeLittle(status + 8, static_cast<uint32_t>(length));
    storeLittle(status, urlKey({status + g_statusFrameSize, length}));
    repairBlocks(std::span(file).first(end));
    return file;
}

bool openWithStatus(UrlFile& file, const std::string& path) {
    require(file.open(path, OpenMode::Read) == 0, "opens");
    // A week or month status is accepted with any checksum, so that it is no less often good.
    return file.readStatus(g_weekMonStatusType) == 0;
}

bool blocksAscend(const std::string& path) {
    UrlFile file;
    if (!openWithStatus(file, path)) {
        return false;
    }
    BlockHeader header;
    std::optional<uint64_t> last;
    uint64_t position = 0;
    int result = 0;
    while ((result = file.readBlockHeader(header)) == 0) {
        ByteView data;
        if (header.minKey > header.maxKey || (last && header.minKey <= *last) ||
            !readData(file, header, position, data)) {
            return false;
        }
        last = header.maxKey;
        const Bytes touched(data.begin(), data.end());
    }
    require(result == 1 || file.broken(), "damage marks the file broken");
    return result == 1;
}

std::optional<Records> readWhole(const std::string& path) {
    UrlFile file;
    Records records;
    if (!openWithStatus(file, path)) {
        return std::nullopt;
    }
    BlockHeader header;
    uint64_t position = 0;
    int result = 0;
    while ((result = file.readBlockHeader(header)) == 0) {
        ByteView data;
        if (!readData(file, header, position, data) || file.unCompress() != 0 ||
            !takeBlock(file, header, records)) {
            return std::nullopt;
        }
    }
    return result == 1 ? std::optional(std::move(records)) : std::nullopt;
}

} // namespace kestrine::fuzz
