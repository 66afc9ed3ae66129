#include "harness/memory_platform.h"

#include "harness/target.h"

#include <algorithm>
#include <cerrno>

namespace kestrine::fuzz {

namespace {

class MemoryFile : public File {
public:
    explicit MemoryFile(std::shared_ptr<Bytes> content) : m_content(std::move(content)) {}

    int64_t read(std::span<uint8_t> buffer) override {
        const size_t begin = std::min(m_position, m_content->size());
        const size_t length = std::min(buffer.size(), m_content->size() - begin);
        std::copy_n(m_content->data() + begin, length, buffer.data());
        m_position += length;
        return static_cast<int64_t>(length);
    }
    int64_t write(std::span<const uint8_t> data) override {
        const size_t end = m_position + data.size();
        require(end <= MemoryPlatform::g_largestFile, "output bounded");
        m_content->resize(std::max(m_content->size(), end));
        std::copy(data.begin(), data.end(), m_content->data() + m_position);
        m_position = end;
        return static_cast<int64_t>(data.size());
    }
    int seek(int64_t offset) override {
        if (offset < 0) {
            errno = EINVAL;
            return -1;
        }
        m_position = static_cast<size_t>(offset);
        return 0;
    }
    int64_t tell() override { return static_cast<int64_t>(m_position); }
    int64_t size() override { return static_cast<int64_t>(m_content->size()); }
    int sync() override { return 0; }
    int close() override { return 0; }

private:
    std::shared_ptr<Bytes> m_content;
    size_t m_position = 0;
};

} // namespace

MemoryPlatform& memory() {
    static MemoryPlatform platform;
    return platform;
}

void MemoryPlatform::clear() {
    m_files.clear();
    executable.clear();
    modified = 1;
}

void MemoryPlatform::put(const std::string& path, Bytes bytes) {
    m_files[path] = std::make_shared<Bytes>(std::move(bytes));
}

const Bytes& MemoryPlatform::content(const std::string& path) const {
    const auto found = m_files.find(path);
    require(found != m_files.end(), "the file is there");
    return *found->second;
}

int MemoryPlatform::notFound() {
    errno = ENOENT;
    m_lastError = g_errorFileNotFound;
    return -1;
}

std::unique_ptr<File> MemoryPlatform::open(const std::string& path, OpenMode mode) {
    if (mode == OpenMode::Truncate) {
        put(path, {});
    }
    const auto found = m_files.find(path);
    if (mode == OpenMode::Append || found == m_files.end()) {
        (void)notFound();
        return nullptr;
    }
    return std::make_unique<MemoryFile>(found->second);
}

bool MemoryPlatform::exists(const std::string& path) {
    const auto found = m_files.lower_bound(path);
    if (found != m_files.end() && found->first == path) {
        return true;
    }
    const auto below = m_files.lower_bound(path + "/");
    return below != m_files.end() && below->first.starts_with(path + "/");
}

int MemoryPlatform::info(const std::string& path, FileInfo& info) {
    const auto found = m_files.find(path);
    if (found == m_files.end()) {
        return notFound();
    }
    info = {false, static_cast<int64_t>(found->second->size()), modified};
    return 0;
}

int MemoryPlatform::removeFile(const std::string& path) {
    return m_files.erase(path) != 0 ? 0 : notFound();
}

int MemoryPlatform::rename(const std::string& from, const std::string& to) {
    const auto found = m_files.find(from);
    if (found == m_files.end()) {
        return notFound();
    }
    const Content content = found->second;
    m_files.erase(found);
    m_files[to] = content;
    return 0;
}

int MemoryPlatform::find(const std::string&, std::vector<FindEntry>& entries, FindStep& step) {
    entries.clear();
    step = FindStep::First;
    return notFound();
}

int MemoryPlatform::freeSpace(const std::string&, uint64_t& bytes) {
    bytes = uint64_t{1} << 50;
    return 0;
}

int MemoryPlatform::removeTree(const std::string&, const std::string& path) {
    std::erase_if(m_files, [&](const auto& file) { return file.first.starts_with(path + "/"); });
    return 0;
}

int MemoryPlatform::move(const std::string&, const std::string& from, const std::string& to) {
    return rename(from, to);
}

void MemoryPlatform::sleep(uint32_t) {
    require(false, "nothing waits");
}

} // namespace kestrine::fuzz
