// Reads the user-buffer records of one node of the log data, file after file.
#pragma once

#include "frame/bytes.h"
#include "input/loader_block.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kestrine {

// Results of LoaderReader.
constexpr int g_loaderDone = 0;
constexpr int g_loaderNoMore = 2; // nothing more for now
constexpr int g_loaderError = 3;

// A place in a node's files.
struct LoaderPosition {
    int32_t fileNumber = 0;
    uint64_t offset = g_logFileHeaderSize;
    int32_t third = 0; // carried and logged, never changed
};

// Files are numbered from 0 without gaps and may still be growing: nothing is read beyond the size
// that a file had when it was opened. A file that cannot be opened or has a bad header is passed
// over; damage inside a file gives up the rest of that file.
//
//   open -> readHistory until it returns other than 0 -> close
class LoaderReader {
public:
    LoaderReader() = default;
    ~LoaderReader();
    LoaderReader(const LoaderReader&) = delete;
    LoaderReader& operator=(const LoaderReader&) = delete;

    // Lends the buffers for a block as stored and as uncompressed; the smaller one is the largest
    // block that can be read. `settleTime`, in seconds: a node's newest file is not opened before
    // it has rested that long. 0, or -1 when a buffer is missing.
    [[nodiscard]] int init(std::span<uint8_t> compressedBuffer, std::span<uint8_t> rawBuffer,
                           int32_t settleTime = 0);

    // Opens the first readable file from `startFileNumber` on; `nodePath` is the type directory
    // (DATA/ACCOUNT/devid_N/DATE/A). 0, 2 when there is none, or 3.
    [[nodiscard]] int open(const std::string& nodePath, int32_t startFileNumber);

    // Appends records to the empty `buffer`: each a 32-bit length and that many bytes of payload.
    // `used` is what they take, also with a result other than 0. 0: there may be more, 2: no more
    // for now, 3: failure.
    [[nodiscard]] int readHistory(std::span<uint8_t> buffer, size_t& used);

    // 0 or 3. Closing a closed reader returns 0.
    [[nodiscard]] int close();

    // True when a file with a good header was opened since `open`.
    [[nodiscard]] bool hasPosition() const { return m_hasPosition; }
    // The last such file, and the end of the last block read from it. Valid if `hasPosition`.
    [[nodiscard]] const LoaderPosition& currentPosition() const { return m_current; }

private:
    enum class Fill { Full, BlockDone, Damaged };

    [[nodiscard]] int openFile(int32_t fileNumber);
    [[nodiscard]] int tryOpenFile(const std::string& path, int32_t fileNumber);
    [[nodiscard]] int setHistoryEndPos();
    [[nodiscard]] int jumpToNextFile();
    [[nodiscard]] int advanceFile();
    [[nodiscard]] int readHistoryInside(std::span<uint8_t> buffer, size_t& used);
    [[nodiscard]] int readHistoryUnCompressData();
    [[nodiscard]] int readPayload(const LogBlockHeader& header, int64_t start);
    [[nodiscard]] int inflatePayload(const LogBlockHeader& header);
    [[nodiscard]] Fill fillRecord(std::span<uint8_t> buffer, size_t& used);
    [[nodiscard]] bool validNetAction(ByteView payload);
    void reportSkippedRecords();
    void commitPosition();
    void dropRawData();

    std::string m_nodePath;
    char m_type = ' '; // last character of the node path
    std::unique_ptr<File> m_file;
    LoaderPosition m_current;
    LoaderPosition m_committed; // everything up to here was delivered
    bool m_hasPosition = false;
    int64_t m_endPos = 0; // size of the file when it was opened
    std::span<uint8_t> m_compressedBuffer;
    std::span<uint8_t> m_rawBuffer;
    size_t m_capacity = 0;
    size_t m_rawLength = 0;
    size_t m_rawOffset = 0; // of the next record
    int m_errno = 0;
    bool m_callFailed = false;     // the last failure was that of a call, not of the file
    uint64_t m_skippedRecords = 0; // of the current file
    int32_t m_settleTime = 0;
};

} // namespace kestrine
