// Log files of a node: LoaderReader over them, and the host of every record delivered.
//
//   input   bit 0  records, packed into files (see Packer), otherwise one file's bytes
//   byte 0  bit 1  buffers for blocks of 700 bytes only
//           bit 2  a delivery buffer in which two of the largest records do not fit
//           bit 3  reading begins with the second file
#include "harness/fuzz_platform.h"
#include "harness/target.h"
#include "input/loader_reader.h"
#include "input/user_buffer.h"
#include "tree/names.h"
#include "worldgen/dat_file.h"

namespace kestrine::fuzz {

namespace {

constexpr const char* g_node = "data/acc/devid_1/20120303/A";

struct Options {
    explicit Options(uint8_t bits)
        : packed((bits & 1) != 0), capacity((bits & 2) != 0 ? 700 : 16384),
          delivery((bits & 4) != 0 ? capacity / 2 : capacity), start((bits >> 3) & 1) {}

    bool packed;
    size_t capacity;
    size_t delivery;
    int32_t start;
};

// Builds files of blocks that fit the buffers, from records:
//   control byte  bits 0, 1  0 a visit, the text is its content; 1 a visit whose content length is
//                            the text's first word; 2 the text is the payload; 3 the same, of
//                            another record type
//                 bit 2      last of its block
//                 bit 3      that block is compressed
//                 bit 4      last of its file
//                 bits 5, 6  net action less 1, kind code 31
//   damage byte   bits 0 to 2  1 to 5: which field is wrong (see `damage`)
//                 bits 3 to 7  its value; of 24 and more: how far off a size
//   word          length of the text
//   text
class Packer {
public:
    explicit Packer(const Options& options) : m_options(options) {}

    void add(InputReader& input) {
        const uint8_t control = input.byte();
        const uint8_t damaged = input.byte();
        const size_t length = input.word() % 4096;
        worldgen::Record record = recordOf(control, asText(input.take(length)));
        const size_t size = worldgen::recordHeadBytes + record.payload.size();
        if (size > m_options.capacity || record.payload.size() + 4 > m_options.delivery) {
            return;
        }
        if (m_block.raw.size() + size > m_options.capacity) {
            endBlock();
        }
        damage(record, damaged & 7, damaged >> 3);
        m_block.add(record);
        const ByteView payload = asBytes(record.payload);
        const auto action = payload.size() < 76 ? 0 : loadLittle<uint32_t>(payload.data() + 72);
        if (m_number >= m_options.start && record.recordType == worldgen::userBufferRecord &&
            action >= 2 && action <= 4) {
            payloads.push_back(record.payload);
        }
        m_block.compressed = (control & 8) != 0;
        if ((control & 4) != 0) {
            endBlock();
        }
        if ((control & 16) != 0) {
            endFile();
        }
    }
    void endFile() {
        endBlock();
        disk().put(names::datFile(g_node, m_number++), asBytes(m_file.bytes()));
        m_file = {};
    }

    bool good = true;                  // nothing is damaged:
    std::vector<std::string> payloads; // these must be delivered

private:
    static worldgen::Record recordOf(uint8_t control, std::string_view text) {
        worldgen::Record record;
        if ((control & 2) != 0) {
            record.payload = text;
            record.recordType = (control & 1) != 0 ? 11 : worldgen::userBufferRecord;
            return record;
        }
        worldgen::PayloadFields fields;
        fields.content = text;
        fields.netAction = 1U + ((control >> 5) & 1U);
        fields.kind = (control & 64) != 0 ? worldgen::kindWithoutHost : 1;
        if ((control & 1) != 0 && text.size() >= 4) {
            fields.contentLength = loadLittle<uint32_t>(asBytes(text).data());
        }
        record.payload = makePayload(fields);
        return record;
    }
    void damage(worldgen::Record& record, size_t field, uint32_t value) {
        std::optional<uint32_t>* const fields[] = {&record.length, &record.crc, &m_block.blockSize,
                                                   &m_block.rawSize, &m_block.flag};
        if (field >= 1 && field <= std::size(fields)) {
            const size_t size = record.payload.size() + (field == 1 ? 0 : m_block.raw.size() + 12);
            *fields[field - 1] = value < 24 ? value : static_cast<uint32_t>(size) + value - 28;
            good = false;
        }
    }
    void endBlock() {
        // One that might be longer compressed than the buffer is stored raw.
        m_block.compressed = m_block.compressed && m_block.raw.size() + 20 <= m_options.capacity;
        m_file.add(m_block);
        m_block = {};
    }

    const Options& m_options;
    int32_t m_number = 0;
    worldgen::DatFile m_file;
    worldgen::Block m_block; // that is being built
};

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

std::vector<std::string> readAll(const Options& options) {
    Bytes compressed(options.capacity), raw(options.capacity), delivery(options.delivery);
    LoaderReader reader;
    require(reader.init(compressed, raw) == 0, "buffers are accepted");
    std::vector<std::string> payloads;
    int result = reader.open(g_node, options.start);
    while (result == g_loaderDone) {
        const LoaderPosition before = reader.currentPosition();
        size_t used = 0;
        result = reader.readHistory(delivery, used);
        require(used <= delivery.size(), "no more than the buffer holds");
        checkDelivery(ByteView(delivery).first(used), payloads);
        const LoaderPosition& after = reader.currentPosition();
        if (reader.hasPosition()) {
            require(after.fileNumber >= options.start, "the position is not before the start");
            require(after.offset <= disk().content(names::datFile(g_node, after.fileNumber)).size(),
                    "the position lies inside its file");
        }
        if (result == g_loaderDone && used == 0 && before.fileNumber == after.fileNumber &&
            before.offset == after.offset) {
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
    Packer packer(options);
    if (options.packed) {
        while (!input.empty()) {
            packer.add(input);
        }
        packer.endFile();
    } else {
        disk().put(names::datFile(g_node, options.start), input.takeAll());
    }
    const std::vector<std::string> payloads = readAll(options);
    require(!options.packed || !packer.good || payloads == packer.payloads,
            "good files are delivered whole");
}

std::vector<std::string> makeSeeds() {
    worldgen::Block block;
    block.visit("www.example.com", 1);
    block.visit("example.net:8080", 2, 2, worldgen::ContentForm::Xml);
    for (int kind = 0; kind < worldgen::skipKindCount; ++kind) {
        block.add(makeSkipped(static_cast<worldgen::SkipKind>(kind), "skipped.example", 3));
    }
    worldgen::DatFile file;
    file.add(block);
    block.compressed = true;
    file.add(block);
    std::vector<std::string> seeds;
    for (const char options : {'\0', '\2', '\10'}) {
        seeds.push_back(options + file.bytes());
    }
    const auto record = [](int control, const std::string& text, int damage = 0) {
        return std::string{static_cast<char>(control), static_cast<char>(damage)} +
               withLength(text);
    };
    std::string records;
    for (const std::string& content :
         {worldgen::listContent("a.example"), worldgen::xmlContent("b.example"),
          worldgen::listField("host", "c.example"), std::string("\7\0\0\0host:d", 11),
          std::string("<?Xml <_f n=\"host\">e</_f>")}) {
        records += record(0x20, content) + record(0x2C, content); // one block, compressed
    }
    const std::string payload = worldgen::visitPayload("f.example", 1);
    records += record(0x34, "last of its file") + record(0x22, payload) + record(0x23, payload);
    for (const char options : {'\1', '\3', '\5', '\11'}) {
        seeds.push_back(options + records);
    }
    for (int field = 1; field <= 5; ++field) {
        for (const int value : {0, 1, 27, 29}) {
            seeds.push_back('\1' + record(0x24, "one", 8 * value + field) + records);
        }
    }
    return seeds;
}

} // namespace kestrine::fuzz
