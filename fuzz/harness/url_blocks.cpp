#include "harness/url_blocks.h"

#include "harness/target.h"

#include <zlib.h>

namespace kestrine::fuzz {

namespace {

// Room for what would be at most a block of some thousand records.
Bytes deflated(ByteView data) {
    Bytes packed(compressBound(data.size()));
    uLongf length = packed.size();
    require(compress2(packed.data(), &length, data.data(), data.size(), 1) == Z_OK, "compresses");
    packed.resize(length);
    return packed;
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

StoredBlock storedBlock(ByteView data, bool compressed) {
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
    block.data = compressed ? deflated(data) : Bytes(data.begin(), data.end());
    header.flag = compressed && block.data.size() <= data.size() ? 1 : 0;
    if (header.flag == 0) {
        block.data.assign(data.begin(), data.end());
    }
    header.blockSize = static_cast<int32_t>(block.data.size());
    header.rawSize = static_cast<int32_t>(data.size());
    return block;
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
    int result = 0;
    while ((result = file.readBlockHeader(header)) == 0) {
        ByteView data;
        if (header.minKey > header.maxKey || (last && header.minKey <= *last) ||
            file.readBlockData(data) != 0) {
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
    int result = 0;
    while ((result = file.readBlockHeader(header)) == 0) {
        ByteView data;
        if (file.readBlockData(data) != 0 || file.unCompress() != 0 ||
            !takeBlock(file, header, records)) {
            return std::nullopt;
        }
    }
    return result == 1 ? std::optional(std::move(records)) : std::nullopt;
}

} // namespace kestrine::fuzz
