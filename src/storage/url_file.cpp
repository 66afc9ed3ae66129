// Opening, closing and writing; url_file_read.cpp reads blocks and records, url_file_status.cpp the
// trailer.
#include "storage/url_file.h"

#include "frame/log.h"
#include "frame/retry.h"

#include <array>
#include <cerrno>
#include <new>

namespace kestrine {

UrlFile::~UrlFile() {
    if (m_file != nullptr && m_file->close() != 0) {
        LOG_ERROR("fclose %s fail, errno %d", m_path.c_str(), errno);
    }
}

int UrlFile::init() {
    std::unique_ptr<UrlRecordBlock> block(new (std::nothrow) UrlRecordBlock);
    if (block == nullptr) {
        return LOG_FAIL("new fail, errno %d", errno);
    }
    if (block->init() != 0) {
        return LOG_FAIL("UrlBlock::init fail");
    }
    m_block = std::move(block);
    return 0;
}

int UrlFile::open(const std::string& path, OpenMode mode) {
    if (path.empty() || m_file != nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (m_block == nullptr && init() != 0) {
        return LOG_FAIL("UrlFile::init fail");
    }
    startOver(path);
    m_broken = false;
    m_file = triedAgain([&] { return platform().open(path, mode); });
    if (m_file == nullptr) {
        return LOG_FAIL("fopen %s fail, errno %d", path.c_str(), errno);
    }
    const bool reading = mode == OpenMode::Read || mode == OpenMode::ReadExisting;
    return reading ? findSize() : 0;
}

void UrlFile::startOver(const std::string& path) {
    m_path = path;
    m_totalCount = 0;
    m_endPos = 0;
    m_block->reset();
    m_status = std::monostate();
    m_headerPending = false;
    m_eof = false;
}

int UrlFile::findSize() {
    m_endPos = triedAgain([this] { return m_file->size(); });
    if (m_endPos < 0) {
        LOG_ERROR("_stati64 fail %s errno %d", m_path.c_str(), errno);
        m_file.reset();
        return -1;
    }
    if (m_endPos == 0) {
        LOG_INFO("file %s is empty!!!", m_path.c_str());
    }
    return 0;
}

int UrlFile::close() {
    if (m_file == nullptr) {
        return 0;
    }
    const int result = m_file->close();
    if (result != 0) {
        LOG_ERROR("fclose %s fail, errno %d", m_path.c_str(), errno);
    }
    m_file.reset();
    return result == 0 ? 0 : -1;
}

int UrlFile::sync() {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (m_file->sync() != 0) {
        return LOG_FAIL("sync %s fail, errno %d", m_path.c_str(), errno);
    }
    return 0;
}

int UrlFile::writeOneRecord(const UrlRecordView& record) {
    if (m_file == nullptr || record.url.size() > g_maxHostText) {
        return LOG_FAIL("param invalid");
    }
    if (!m_block->hasRoomFor(record) && writeUrlRecordBlocks() != 0) {
        return LOG_FAIL("compressAndWriteFile fail");
    }
    if (!m_block->hasRoomFor(record)) {
        return LOG_FAIL("ERROR, still full");
    }
    m_block->append(record);
    m_totalCount += record.count;
    return 0;
}

int UrlFile::writeUrlRecordBlocks() {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (m_block->writeOneBlock(*m_file) != 0) {
        return LOG_FAIL("UrlRecordBlock::compressAndWriteFile fail");
    }
    m_block->reset();
    m_endPos = m_file->tell();
    if (m_endPos < 0) {
        return LOG_FAIL("_ftelli64 fail %s, errno %d", m_path.c_str(), errno);
    }
    return 0;
}

int UrlFile::flush() {
    if (writeUrlRecordBlocks() != 0) {
        return LOG_FAIL("writeUrlRecordBlocks fail");
    }
    return 0;
}

int UrlFile::writeBlockHeader(const BlockHeader& header) {
    if (m_file == nullptr) {
        return LOG_FAIL("param invalid");
    }
    if (Util::validateBlockHeader(&header) != 0) {
        return LOG_FAIL("validateBlockHeader fail");
    }
    std::array<uint8_t, BlockHeader::g_size> bytes{};
    header.store(bytes);
    if (append(bytes) != 0) {
        return -1;
    }
    m_totalCount += static_cast<uint64_t>(header.totalCount);
    return 0;
}

int UrlFile::writeBlockData(ByteView data) {
    if (m_file == nullptr || data.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (append(data) != 0) {
        return -1;
    }
    m_block->reset();
    return 0;
}

int UrlFile::append(ByteView data) {
    if (m_file->write(data) != static_cast<int64_t>(data.size())) {
        return LOG_FAIL("fwrite fail %s errno %d", m_path.c_str(), errno);
    }
    m_endPos += static_cast<int64_t>(data.size());
    return 0;
}

int64_t UrlFile::pendingSize() const {
    const size_t used = m_block == nullptr ? 0 : m_block->used();
    return m_endPos + static_cast<int64_t>(used == 0 ? 0 : BlockHeader::g_size + used);
}

} // namespace kestrine
