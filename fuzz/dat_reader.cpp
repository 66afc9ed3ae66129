// Log files of a node: LoaderReader over them, and the host of every record delivered.
//
//   input   bits 0, 1  form: 0 the files' bytes as they are
//   byte 0                   1 the same, with header fields made valid and checksums repaired
//                            2, 3 records, packed into good files (see PackedRecord)
//           bit 2      buffers for blocks of 700 bytes only
//           bit 3      a delivery buffer in which two of the largest records do not fit
//           bit 4      the files begin with number 99, so that they lie in two directories
//           bit 5      reading begins with the second file
//           bits 6, 7  files less 1 (forms 0 and 1)
//   bytes 1 to 3       where the rest is cut into files, in 1/256
#include "harness/fuzz_platform.h"
#include "harness/target.h"

#include "frame/tree_names.h"
#include "input/loader_reader.h"
#include "input/user_buffer.h"
#include "worldgen/dat_file.h"

#include <zlib.h>

namespace kestrine::fuzz {

namespace {

constexpr const char* g_node = "data/acc/devid_1/20120303/A";
constexpr size_t g_headerBytes = 28;
constexpr size_t g_blockHeaderBytes = 32;
constexpr size_t g_recordHeadBytes = 12;
constexpr size_t g_largeCapacity = 16384;
constexpr size_t g_smallCapacity = 700;

struct Options {
    explicit Options(uint8_t bits)
        : packed((bits & 2) != 0), repaired((bits & 3) == 1), capacity(g_largeCapacity),
          delivery(g_largeCapacity), firstNumber((bits & 16) != 0 ? 99 : 0),
          start(firstNumber + ((bits & 32) != 0 ? 1 : 0)), files(1U + (bits >> 6)) {
        if ((bits & 4) != 0) {
            capacity = delivery = g_smallCapacity;
        }
        if ((bits & 8) != 0) {
            delivery = capacity / 2;
        }
    }

    bool packed;
    bool repaired;
    size_t capacity;
    size_t delivery;
    int32_t firstNumber;
    int32_t start;
    size_t files;
};

// What the reader must deliver from well-formed files.
struct Expectation {
    bool known = false;
    std::vector<std::string> payloads;
};

Bytes deflated(std::string_view raw) {
    Bytes packed(compressBound(raw.size()));
    uLongf length = packed.size();
    require(compress2(packed.data(), &length, asBytes(raw).data(), raw.size(), 1) == Z_OK,
            "compresses");
    packed.resize(length);
    return packed;
}

// ---- form 1

uint32_t checksumOf(const uint8_t* payload, size_t length) {
    return static_cast<uint32_t>(crc32(0, payload, static_cast<uInt>(length)));
}

// Of every record up to the first that does not lie inside.
void repairRecords(std::span<uint8_t> raw) {
    while (raw.size() >= g_recordHeadBytes) {
        const size_t length = loadLittle<uint32_t>(raw.data() + 4);
        if (length > raw.size() - g_recordHeadBytes) {
            return;
        }
        storeLittle(raw.data() + 8, checksumOf(raw.data() + g_recordHeadBytes, length));
        raw = raw.subspan(g_recordHeadBytes + length);
    }
}

// The block whose header and payload stand at the front of `rest`, repaired.
Bytes repairedBlock(ByteView& rest) {
    Bytes block(rest.begin(), rest.begin() + g_blockHeaderBytes);
    rest = rest.subspan(g_blockHeaderBytes);
    storeLittle(block.data(), loadLittle<uint32_t>(block.data()) % 7);
    const uint32_t flag = loadLittle<uint32_t>(block.data() + 12) & 1;
    storeLittle(block.data() + 12, flag);
    const size_t wanted = loadLittle<uint32_t>(block.data() + (flag == 0 ? 8 : 4));
    ByteView stored = rest.first(std::min({wanted, rest.size(), g_largeCapacity}));
    rest = rest.subspan(stored.size());

    Bytes raw(stored.begin(), stored.end());
    Bytes packed;
    if (flag == 1) {
        raw.resize(g_largeCapacity);
        uLongf length = raw.size();
        const bool good = uncompress(raw.data(), &length, stored.data(), stored.size()) == Z_OK;
        raw.resize(good ? length : 0);
    }
    repairRecords(raw);
    if (flag == 1 && !raw.empty()) {
        packed = deflated(asText(raw));
        stored = packed;
    } else if (flag == 0) {
        stored = raw;
    }
    storeLittle(block.data() + 4, static_cast<uint32_t>(stored.size()));
    storeLittle(block.data() + 8, static_cast<uint32_t>(raw.size()));
    block.insert(block.end(), stored.begin(), stored.end());
    return block;
}

Bytes repairedFile(ByteView bytes) {
    Bytes file(bytes.begin(), bytes.begin() + std::min(g_headerBytes, bytes.size()));
    if (file.size() < g_headerBytes) {
        return file;
    }
    storeLittle(file.data(), g_logFileMagic);
    ByteView rest = bytes.subspan(g_headerBytes);
    while (rest.size() >= g_blockHeaderBytes) {
        const Bytes block = repairedBlock(rest);
        file.insert(file.end(), block.begin(), block.end());
    }
    file.insert(file.end(), rest.begin(), rest.end());
    return file;
}

// ---- forms 2 and 3

//   control byte  bits 0, 1  0 a visit, the text is its content; 1 a visit whose content length is
//                            the text's first word; 2 the text is the payload; 3 the same, of
//                            another record type
//                 bit 2      last of its block
//                 bit 3      that block is compressed
//                 bit 4      last of its file
//                 bits 5, 6  net action less 1, kind code 31
//   word          length of the text
//   text
struct PackedRecord {
    uint8_t control = 0;
    std::string text;

    explicit PackedRecord(InputReader& input) : control(input.byte()) {
        const size_t length = input.word() % 4096;
        text = asText(input.take(length));
    }

    [[nodiscard]] worldgen::Record record() const {
        worldgen::Record made;
        if ((control & 2) != 0) {
            made.payload = text;
            made.recordType = (control & 1) != 0 ? 11 : worldgen::userBufferRecord;
            return made;
        }
        worldgen::PayloadFields fields;
        fields.content = text;
        fields.netAction = 1U + ((control >> 5) & 1U);
        fields.kind = (control & 64) != 0 ? worldgen::kindWithoutHost : 1;
        if ((control & 1) != 0 && text.size() >= 4) {
            fields.contentLength = loadLittle<uint32_t>(asBytes(text).data());
        }
        made.payload = makePayload(fields);
        return made;
    }
};

bool isDelivered(const worldgen::Record& record) {
    const ByteView payload = asBytes(record.payload);
    if (record.recordType != worldgen::userBufferRecord || payload.size() < 76) {
        return false;
    }
    const auto action = loadLittle<uint32_t>(payload.data() + worldgen::netActionOffset);
    return action >= 2 && action <= 4;
}

// Builds files of blocks that fit the buffers.
class Packer {
public:
    explicit Packer(const Options& options) : m_options(options) {}

    void add(const PackedRecord& packed) {
        const worldgen::Record record = packed.record();
        const size_t size = g_recordHeadBytes + record.payload.size();
        if (size > m_options.capacity || record.payload.size() + 4 > m_options.delivery) {
            return;
        }
        if (m_raw.size() + size > m_options.capacity) {
            endBlock(false);
        }
        appendRecord(m_raw, record);
        if (m_number >= m_options.start && isDelivered(record)) {
            expectation.payloads.push_back(record.payload);
        }
        if ((packed.control & 4) != 0) {
            endBlock((packed.control & 8) != 0);
        }
        if ((packed.control & 16) != 0) {
            endFile();
        }
    }
    void endFile() {
        endBlock(false);
        disk().put(names::datFile(g_node, m_number++), asBytes(m_file.bytes()));
        m_file = {};
    }

    Expectation expectation;

private:
    void endBlock(bool compressed) {
        const Bytes packed = compressed ? deflated(m_raw) : Bytes();
        // One that would be longer compressed than the buffer is stored raw.
        const bool fits = compressed && packed.size() <= m_options.capacity;
        const ByteView stored = fits ? ByteView(packed) : asBytes(m_raw);
        uint8_t header[g_blockHeaderBytes] = {1};
        storeLittle(header + 4, static_cast<uint32_t>(stored.size()));
        storeLittle(header + 8, static_cast<uint32_t>(m_raw.size()));
        storeLittle(header + 12, uint32_t{fits ? 1U : 0U});
        m_file.append(asText(header)).append(asText(stored));
        m_raw.clear();
    }

    const Options& m_options;
    int32_t m_number = m_options.firstNumber;
    worldgen::DatFile m_file;
    std::string m_raw; // of the block that is being built
};

Expectation putPackedFiles(InputReader& input, const Options& options) {
    Packer packer(options);
    while (!input.empty()) {
        packer.add(PackedRecord(input));
    }
    packer.endFile();
    packer.expectation.known = true;
    return packer.expectation;
}

Expectation putFiles(InputReader& input, const Options& options) {
    const uint8_t cuts[] = {input.byte(), input.byte(), input.byte()};
    if (options.packed) {
        return putPackedFiles(input, options);
    }
    ByteView rest = input.takeAll();
    for (size_t i = 0; i < options.files; ++i) {
        const bool last = i + 1 == options.files;
        const ByteView part = last ? rest : rest.first(rest.size() * cuts[i] / 256);
        rest = rest.subspan(part.size());
        disk().put(names::datFile(g_node, options.firstNumber + static_cast<int32_t>(i)),
                   options.repaired ? repairedFile(part) : Bytes(part.begin(), part.end()));
    }
    return {};
}

// ---- the reader

void checkHost(ByteView payload) {
    std::string_view host;
    uint32_t type = 0;
    const HostResult result = findHost(payload, host, type);
    if (result == HostResult::None) {
        return;
    }
    const ByteView found = asBytes(host);
    require(result == HostResult::Unterminated || !host.empty(), "a host that is found has text");
    require(payload.size() > g_payloadContentOffset, "a host needs content");
    const size_t declared = loadLittle<uint32_t>(payload.data() + g_payloadContentLengthOffset);
    const ByteView content = payload.subspan(g_payloadContentOffset);
    const uint8_t* const end = content.data() + std::min(declared, content.size());
    require(found.data() >= content.data() && found.data() + found.size() <= end,
            "the host lies inside the content");
}

void checkDelivery(ByteView stream, std::vector<std::string>& payloads) {
    size_t offset = 0;
    for (ByteView payload; nextEntry(stream, offset, payload);) {
        require(payload.size() >= g_payloadActionOffset + 4, "the net action is inside");
        const auto action = loadLittle<int32_t>(payload.data() + g_payloadActionOffset);
        require(action >= 2 && action <= 4, "the net action is valid");
        // A copy of its own size, so that a read beyond it is noticed.
        const Bytes exact(payload.begin(), payload.end());
        checkHost(exact);
        payloads.emplace_back(asText(payload));
    }
    require(offset == stream.size(), "the stream consists of whole entries");
}

bool samePlace(const LoaderPosition& a, const LoaderPosition& b) {
    return a.fileNumber == b.fileNumber && a.offset == b.offset;
}

void checkPosition(const LoaderReader& reader, const Options& options) {
    if (!reader.hasPosition()) {
        return;
    }
    const LoaderPosition& position = reader.currentPosition();
    require(position.fileNumber >= options.start, "the position is not before the start");
    const Bytes& file = disk().content(names::datFile(g_node, position.fileNumber));
    require(position.offset <= file.size(), "the position lies inside its file");
}

std::vector<std::string> readAll(const Options& options) {
    Bytes compressed(options.capacity);
    Bytes raw(options.capacity);
    Bytes delivery(options.delivery);
    LoaderReader reader;
    require(reader.init(compressed, raw) == 0, "buffers are accepted");
    std::vector<std::string> payloads;
    int result = reader.open(g_node, options.start);
    while (result == g_loaderDone) {
        const LoaderPosition before = reader.currentPosition();
        size_t used = 0;
        result = reader.readHistory(delivery, used);
        require(result == g_loaderDone || result == g_loaderNoMore || result == g_loaderError,
                "a known result");
        require(used <= delivery.size(), "no more than the buffer holds");
        checkDelivery(ByteView(delivery).first(used), payloads);
        checkPosition(reader, options);
        const bool moved = used > 0 || !samePlace(before, reader.currentPosition());
        if (result == g_loaderDone && !moved) {
            // Only a record that is larger than the caller's buffer may stop the reader.
            require(options.delivery < options.capacity, "each call gets on");
            break;
        }
    }
    require(reader.close() == 0, "closes");
    return payloads;
}

} // namespace

void runInput(ByteView bytes) {
    InputReader input(bytes);
    const Options options(input.byte());
    const Expectation expectation = putFiles(input, options);
    const std::vector<std::string> payloads = readAll(options);
    if (expectation.known) {
        require(payloads == expectation.payloads, "good files are delivered whole");
    }
}

std::vector<std::string> makeSeeds() {
    using worldgen::Block;
    using worldgen::ContentForm;
    worldgen::DatFile file;
    for (const bool compressed : {false, true}) {
        Block block;
        block.compressed = compressed;
        block.visit("www.example.com", 1).visit("example.net:8080", 2, 2, ContentForm::Xml);
        for (int kind = 0; kind < worldgen::skipKindCount; ++kind) {
            block.add(makeSkipped(static_cast<worldgen::SkipKind>(kind), "skipped.example", 3));
        }
        file.add(block);
    }
    const std::string two = file.bytes() + worldgen::DatFile().add(Block().visit("b", 1)).bytes();
    std::string records;
    for (const std::string& content :
         {worldgen::listContent("a.example"), worldgen::xmlContent("b.example"),
          worldgen::listField("host", "c.example"), std::string("\7\0\0\0host:d", 11),
          std::string("<?Xml <_f n=\"host\">e</_f>")}) {
        records += static_cast<char>(0x20) + withLength(content); // in one block
        records += static_cast<char>(0x2C) + withLength(content); // ends it, compressed
    }
    records += static_cast<char>(0x34) + withLength("last of its file");
    records += static_cast<char>(0x22) + withLength(worldgen::visitPayload("f.example", 1));
    records += static_cast<char>(0x23) + withLength(worldgen::visitPayload("g.example", 1));

    const std::string cuts("\x80\x80\x80", 3);
    const auto cut = static_cast<char>(file.bytes().size() * 256 / two.size() + 1);
    std::vector<std::string> seeds;
    for (const int form : {0, 1}) {
        seeds.push_back(static_cast<char>(form) + cuts + file.bytes());
        seeds.push_back(static_cast<char>(form | 0x14) + cuts + file.bytes());
        seeds.push_back(static_cast<char>(form | 0x50) + std::string(3, cut) + two);
    }
    for (const int options : {0x02, 0x06, 0x0A, 0x12, 0x32}) {
        seeds.push_back(static_cast<char>(options) + cuts + records);
    }
    return seeds;
}

} // namespace kestrine::fuzz
