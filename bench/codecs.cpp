#include "codecs.h"

#include "frame/buffer.h"
#include "measure.h"
#include "storage/codec.h"
#include "storage/codec_library.h"

#include <zlib.h>

namespace kestrine::bench {

namespace {

constexpr size_t g_bufferSize = 4194304; // twice the largest block of any file

std::span<uint8_t> buffer() {
    static Buffer bytes;
    require(!bytes.empty() || bytes.allocate(g_bufferSize) == 0, "allocate a buffer");
    return bytes.span();
}

std::vector<Codec> makeCodecs() {
    std::vector<Codec> all = {{codec::decoder(), codec::encoder(), codec::decode, codec::encode}};
    const std::string zlib = codec::Zlib::g_name;
    if (all[0].decoder != zlib || all[0].encoder != zlib) {
        all.push_back({zlib, zlib, codec::Zlib::decode, codec::Zlib::encode});
    }
    return all;
}

} // namespace

ByteView Codec::decoded(ByteView stored, bool compressed) const {
    if (!compressed) {
        return stored;
    }
    size_t length = 0;
    require(decode(stored, buffer(), length) == Z_OK, "decode a block");
    return buffer().first(length);
}

ByteView Codec::encoded(ByteView raw) const {
    size_t length = 0;
    require(encode(raw, buffer(), length) == Z_OK, "encode a block");
    return buffer().first(length);
}

const std::vector<Codec>& codecs() {
    static const std::vector<Codec> all = makeCodecs();
    return all;
}

void decodeAll(const Codec& codec, const std::vector<Block>& blocks) {
    for (const Block& block : blocks) {
        require(!codec.decoded(block.bytes, block.compressed).empty(), "find bytes in a block");
    }
}

std::vector<Block> recordsOf(const std::vector<Block>& blocks) {
    std::vector<Block> records;
    for (const Block& block : blocks) {
        const ByteView bytes = codecs().front().decoded(block.bytes, block.compressed);
        records.push_back({{bytes.begin(), bytes.end()}, false});
    }
    return records;
}

} // namespace kestrine::bench
