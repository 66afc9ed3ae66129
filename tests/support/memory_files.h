// A disk in memory, for tests that work on very many small files. Directories need not be made.
#pragma once

#include "support/forwarding_platform.h"

#include <algorithm>
#include <cerrno>
#include <map>

namespace kestrine::test {

class MemoryFiles : public ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;
    using Bytes = std::vector<uint8_t>;

    std::map<std::string, Bytes> files;
    int openNow = 0;
    int openMost = 0;

    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        if (mode == OpenMode::Truncate) {
            files[path].clear();
        } else if (!files.contains(path)) {
            errno = ENOENT;
            return nullptr;
        }
        openMost = std::max(openMost, ++openNow);
        return std::make_unique<MemoryFile>(*this, files[path]);
    }
    bool exists(const std::string& path) override {
        return path.ends_with('/') || files.contains(path);
    }
    int removeFile(const std::string& path) override { return files.erase(path) == 1 ? 0 : -1; }
    int rename(const std::string& from, const std::string& to) override {
        files[to] = std::move(files[from]);
        return removeFile(from);
    }
    int move(const std::string&, const std::string& from, const std::string& to) override {
        return rename(from, to);
    }
    int makeDirectory(const std::string&) override { return 0; }
    int removeDirectory(const std::string&) override { return 0; }
    int syncDirectory(const std::string&) override { return 0; }

private:
    class MemoryFile : public File {
    public:
        MemoryFile(MemoryFiles& disk, Bytes& bytes) : m_disk(disk), m_bytes(bytes) {}
        ~MemoryFile() override { --m_disk.openNow; }
        int64_t read(std::span<uint8_t> buffer) override {
            const size_t got = std::min(buffer.size(), m_bytes.size() - m_at);
            std::copy_n(m_bytes.begin() + static_cast<ptrdiff_t>(m_at), got, buffer.begin());
            m_at += got;
            return static_cast<int64_t>(got);
        }
        int64_t write(std::span<const uint8_t> data) override {
            m_bytes.insert(m_bytes.end(), data.begin(), data.end());
            m_at = m_bytes.size();
            return static_cast<int64_t>(data.size());
        }
        int seek(int64_t offset) override {
            m_at = std::min(static_cast<size_t>(offset), m_bytes.size());
            return 0;
        }
        int64_t tell() override { return static_cast<int64_t>(m_at); }
        int64_t size() override { return static_cast<int64_t>(m_bytes.size()); }
        int sync() override { return 0; }
        int close() override { return 0; }

    private:
        MemoryFiles& m_disk;
        Bytes& m_bytes;
        size_t m_at = 0;
    };
};

} // namespace kestrine::test
