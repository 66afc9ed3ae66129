// URL files and their blocks: built from data that need not be right, and judged as a whole.
#pragma once

#include "harness/fuzz_platform.h"
#include "storage/url_file.h"

#include <map>
#include <optional>
#include <string>

namespace kestrine::fuzz {

struct Record {
    uint64_t count = 0;
    uint32_t type = 0;
    std::string url;
};
using Records = std::map<uint64_t, Record>;

struct StoredBlock {
    BlockHeader header;
    Bytes data;
};

// The records as they lie in a block.
[[nodiscard]] std::string rawData(const Records& records);
// A raw block of this data whose header says of the records in it what is true, as far as they can
// be told.
[[nodiscard]] StoredBlock storedBlock(ByteView data);
// Compresses it, unless that makes it longer.
void compressBlock(StoredBlock& block);

// The file with what would end every reading at once made right: sizes that do not fit, header
// fields out of their range, the status' checksum.
[[nodiscard]] Bytes repairedUrlFile(ByteView bytes);

// Opens a file and reads its status, of either kind. False when it has none.
[[nodiscard]] bool openWithStatus(UrlFile& file, const std::string& path);
// Walks the blocks by their headers and data: whether their key ranges ascend and do not overlap,
// up to the end.
[[nodiscard]] bool blocksAscend(const std::string& path);
// The records of a file without any damage: keys ascend, and every header is what its records say.
// None for any other file.
[[nodiscard]] std::optional<Records> readWhole(const std::string& path);

} // namespace kestrine::fuzz
