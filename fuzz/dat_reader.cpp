// Log files of a node: LoaderReader over them, and the host of every record delivered.
#include "harness/target.h"
#include "input/loader_reader.h"
#include "input/user_buffer.h"
#include "tree/names.h"
#include "worldgen/dat_file.h"

#include <algorithm>
#include <fuzzer/FuzzedDataProvider.h>

namespace kestrine::fuzz {

namespace {

using Bytes = test::MemoryDisk::Bytes;

constexpr const char* g_node = "data/acc/devid_1/20120303/A";
constexpr int32_t g_start = 1; // number of the first file that is read
// Blocks of records that are as they should be, but for their payloads.
std::string packed(FuzzedDataProvider& input) {
    worldgen::DatFile file;
    while (input.remaining_bytes() > 0) {
        worldgen::Block block;
        block.compressed = input.ConsumeBool();
        for (int records = input.ConsumeIntegralInRange(1, 8); records > 0; --records) {
            worldgen::Record record;
            record.payload = input.ConsumeBytesAsString(input.ConsumeIntegral<uint16_t>());
            block.add(record);
        }
        file.add(block);
    }
    return file.bytes();
}

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

void checkDelivery(ByteView stream) {
    size_t offset = 0;
    for (ByteView payload; nextEntry(stream, offset, payload);) {
        require(payload.size() >= g_payloadActionOffset + 4, "the net action is inside");
        const auto action = loadLittle<int32_t>(payload.data() + g_payloadActionOffset);
        require(action >= 2 && action <= 4, "the net action is valid");
        // A copy of its own size, so that a read beyond it is noticed.
        const Bytes exact(payload.begin(), payload.end());
        checkHost(exact);
    }
    require(offset == stream.size(), "the stream consists of whole entries");
}

void readAll(size_t capacity, size_t deliverySize) {
    Bytes compressed(capacity), raw(capacity), delivery(deliverySize);
    LoaderReader reader;
    require(reader.init(compressed, raw) == 0, "buffers are accepted");
    int result = reader.open(g_node, g_start);
    while (result == g_loaderDone) {
        const LoaderPosition before = reader.currentPosition();
        size_t used = 0;
        result = reader.readHistory(delivery, used);
        require(used <= delivery.size(), "no more than the buffer holds");
        checkDelivery(ByteView(delivery).first(used));
        const LoaderPosition& after = reader.currentPosition();
        if (reader.hasPosition()) {
            const std::string path = names::datFile(g_node, after.fileNumber);
            require(after.fileNumber >= g_start, "the position is not before the start");
            require(after.offset <= machine().disk.files[path].size(), "it lies inside its file");
        }
        if (result == g_loaderDone && used == 0 && before.fileNumber == after.fileNumber &&
            before.offset == after.offset) {
            // Only a record that is larger than the caller's buffer may stop the reader.
            require(deliverySize < capacity, "each call gets on");
            break;
        }
    }
    require(reader.close() == 0, "closes");
}

// Two bytes as the provider takes them.
std::string numberOf(size_t number) {
    return {static_cast<char>(number), static_cast<char>(number >> 8)};
}

} // namespace

void runInput(ByteView bytes) {
    FuzzedDataProvider input(bytes.data(), bytes.size());
    const bool asTheyAre = input.ConsumeBool();
    const auto capacity = input.ConsumeIntegralInRange<size_t>(1, 16384);
    const size_t delivery = input.ConsumeBool() ? capacity / 2 : capacity;
    const std::string file = asTheyAre ? input.ConsumeRemainingBytesAsString() : packed(input);
    for (const int32_t number : {g_start, g_start + 1}) {
        machine().put(names::datFile(g_node, number), asBytes(file));
    }
    readAll(capacity, delivery);
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
    for (const char halfDelivery : {'\0', '\1'}) {
        const size_t size = block.raw.size(); // the buffers end where the block ends
        seeds.push_back(file.bytes() + halfDelivery + numberOf(size - 1) + '\1');
    }
    worldgen::PayloadFields fields;
    fields.content = worldgen::listField("host", "c.example");
    const std::string payload = makePayload(fields);
    const std::string length = numberOf(payload.size());
    seeds.push_back(payload + payload + length + length + "\1\1" + '\0' + numberOf(16383) + '\0');
    return seeds;
}

} // namespace kestrine::fuzz
