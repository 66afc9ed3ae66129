#include "commands.h"

#include <cinttypes>
#include <cstdio>

namespace kestrine::viewer {

namespace {

void printBlock(uint64_t number, const BlockHeader& header) {
    std::printf("# block %" PRIu64 ": %" PRId32 " records, %" PRId64 " visits, keys %016" PRIx64
                " to %016" PRIx64 ", %" PRId32 " bytes, %s %" PRId32 "\n",
                number, header.count, header.totalCount, header.minKey, header.maxKey,
                header.blockSize, header.flag == 1 ? "compressed from" : "stored as",
                header.rawSize);
}

void printRecord(const UrlRecordView& record) {
    std::printf("%016" PRIx64 " %" PRIu64 " %" PRIu32 " %s\n", record.key, record.count,
                record.type, printable(record.url).c_str());
}

} // namespace

void printRecords(CheckedFile& file, bool blocks) {
    const auto onBlock = [blocks](uint64_t number, const BlockHeader& header) {
        if (blocks) {
            printBlock(number, header);
        }
    };
    file.readAll(onBlock, printRecord);
}

std::string printable(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '\\') {
            result += "\\\\";
        } else if (c >= ' ' && c <= '~') {
            result += c;
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
            result += escaped;
        }
    }
    return result;
}

} // namespace kestrine::viewer
