#include "worldgen/dat_file.h"

#include <stdexcept>

#include <zlib.h>

#include "worldgen/bytes.h"

namespace worldgen {

namespace {

constexpr int filesPerDirectory = 100;
constexpr std::string_view fileLabel = "USRLOG01"; // fills its field, without a zero

std::string blockHeader(std::uint32_t type, std::uint32_t blockSize, std::uint32_t rawSize,
                        std::uint32_t flag) {
    std::string header;
    appendLe32(header, type);
    appendLe32(header, blockSize);
    appendLe32(header, rawSize);
    appendLe32(header, flag);
    header.resize(blockHeaderBytes, '\x5A');
    return header;
}

std::string fileHeader() {
    std::string header;
    appendLe32(header, fileMagic);
    header += fileLabel;
    header.resize(fileHeaderBytes, '\xA5');
    return header;
}

} // namespace

std::filesystem::path dateDir(const std::filesystem::path& root, std::string_view account,
                              int device, int date) {
    return root / "data" / "log_data" / std::string(account) / ("devid_" + std::to_string(device)) /
           std::to_string(date);
}

std::filesystem::path datPath(const std::filesystem::path& dateDirectory, int number) {
    return dateDirectory / "A" / std::to_string(number / filesPerDirectory) /
           (std::to_string(number) + ".dat");
}

Block& Block::add(const Record& record) {
    appendRecord(raw, record);
    return *this;
}

Block& Block::visit(std::string_view host, std::uint32_t type, int times, ContentForm form) {
    Record record;
    record.payload = visitPayload(host, type, form);
    for (int i = 0; i < times; ++i) {
        appendRecord(raw, record);
    }
    return *this;
}

std::string Block::encode() const {
    BlockPacker packer;
    std::string stored =
        payload ? *payload : packer.pack(raw, compressed, blockType).substr(blockHeaderBytes);
    return blockHeader(blockType, blockSize.value_or(static_cast<std::uint32_t>(stored.size())),
                       rawSize.value_or(static_cast<std::uint32_t>(raw.size())),
                       flag.value_or(compressed ? 1 : 0)) +
           stored;
}

DatFile::DatFile() : m_bytes(fileHeader()) {}

DatFile& DatFile::append(std::string_view bytes) {
    m_bytes += bytes;
    return *this;
}

DatFile& DatFile::truncate(std::size_t size) {
    m_bytes.resize(size < m_bytes.size() ? size : m_bytes.size());
    return *this;
}

DatFile& DatFile::patch(std::size_t offset, std::string_view bytes) {
    m_bytes.replace(offset, bytes.size(), bytes);
    return *this;
}

DatFile& DatFile::magic(std::uint32_t value) {
    char word[4];
    storeLe32(word, value);
    return patch(0, std::string_view(word, sizeof word));
}

void DatFile::write(const std::filesystem::path& dateDirectory, int number) const {
    std::filesystem::path path = datPath(dateDirectory, number);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary);
    stream.write(m_bytes.data(), static_cast<std::streamsize>(m_bytes.size()));
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

struct BlockPacker::Deflater {
    Deflater() {
        if (deflateInit(&stream, Z_BEST_SPEED) != Z_OK) {
            throw std::runtime_error("zlib does not start");
        }
    }
    ~Deflater() { deflateEnd(&stream); }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    z_stream stream{};
};

BlockPacker::BlockPacker() : m_deflater(std::make_unique<Deflater>()) {}

BlockPacker::~BlockPacker() = default;

const std::string& BlockPacker::pack(std::string_view raw, bool compressed,
                                     std::uint32_t blockType) {
    auto rawSize = static_cast<std::uint32_t>(raw.size());
    if (!compressed) {
        m_block = blockHeader(blockType, rawSize, rawSize, 0);
        m_block += raw;
        return m_block;
    }
    z_stream& stream = m_deflater->stream;
    deflateReset(&stream);
    std::size_t bound = deflateBound(&stream, static_cast<uLong>(raw.size()));
    m_block.resize(blockHeaderBytes + bound);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(raw.data()));
    stream.avail_in = rawSize;
    stream.next_out = reinterpret_cast<Bytef*>(m_block.data() + blockHeaderBytes);
    stream.avail_out = static_cast<uInt>(bound);
    if (deflate(&stream, Z_FINISH) != Z_STREAM_END) {
        throw std::runtime_error("zlib does not compress");
    }
    auto blockSize = static_cast<std::uint32_t>(bound - stream.avail_out);
    m_block.resize(blockHeaderBytes + blockSize);
    m_block.replace(0, blockHeaderBytes, blockHeader(blockType, blockSize, rawSize, 1));
    return m_block;
}

DatWriter::DatWriter(const std::filesystem::path& dateDirectory, int number)
    : m_path(datPath(dateDirectory, number)), m_workPath(m_path) {
    m_workPath += ".part";
    std::filesystem::create_directories(m_path.parent_path());
    if (std::filesystem::exists(m_path)) {
        throw std::runtime_error(m_path.string() + " exists already");
    }
    m_stream.open(m_workPath, std::ios::binary);
    write(fileHeader());
}

void DatWriter::write(std::string_view blockBytes) {
    m_stream.write(blockBytes.data(), static_cast<std::streamsize>(blockBytes.size()));
    m_size += blockBytes.size();
}

std::uint64_t DatWriter::close() {
    m_stream.close();
    if (!m_stream) {
        throw std::runtime_error("cannot write " + m_workPath.string());
    }
    std::filesystem::rename(m_workPath, m_path);
    return m_size;
}

} // namespace worldgen
