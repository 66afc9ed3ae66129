#include "support/memory_disk.h"

#include <algorithm>
#include <cerrno>

namespace kestrine::test {

namespace {

std::string withSlash(const std::string& path) {
    return path.ends_with('/') ? path : path + '/';
}

// Whether a sorted container of paths has one below the directory.
template <typename Paths>
bool hasBelow(const Paths& paths, const std::string& directory) {
    const auto place = paths.lower_bound(withSlash(directory));
    if constexpr (requires { place->first; }) {
        return place != paths.end() && place->first.starts_with(withSlash(directory));
    } else {
        return place != paths.end() && place->starts_with(withSlash(directory));
    }
}

int failWith(int error) {
    errno = error;
    return -1;
}

} // namespace

class MemoryDisk::OpenFile : public File {
public:
    OpenFile(MemoryDisk& disk, const std::string& path)
        : m_disk(disk), m_place(disk.m_open.insert(path)), m_bytes(disk.files[path]) {}
    ~OpenFile() override { (void)close(); }

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
    int close() override {
        if (!m_closed) {
            m_disk.m_open.erase(m_place);
            m_closed = true;
        }
        return 0;
    }

private:
    MemoryDisk& m_disk;
    std::multiset<std::string>::iterator m_place;
    Bytes& m_bytes; // stays where it is while the file is open
    size_t m_at = 0;
    bool m_closed = false;
};

std::set<std::string> MemoryDisk::names(const std::string& below) const {
    std::set<std::string> found;
    const std::string start = withSlash(below);
    for (auto file = files.lower_bound(start);
         file != files.end() && file->first.starts_with(start); ++file) {
        found.insert(file->first.substr(start.size()));
    }
    for (auto path = directories.lower_bound(start);
         path != directories.end() && path->starts_with(start); ++path) {
        found.insert(path->substr(start.size()) + "/");
    }
    return found;
}

bool MemoryDisk::isDirectory(const std::string& path) const {
    return directories.contains(path) || hasBelow(files, path) || hasBelow(directories, path);
}

bool MemoryDisk::isHeld(const std::string& path) const {
    return m_open.contains(path) || hasBelow(m_open, path);
}

std::unique_ptr<File> MemoryDisk::open(const std::string& path, OpenMode mode) {
    if (isDirectory(path) || (mode != OpenMode::Truncate && !files.contains(path))) {
        errno = ENOENT;
        return nullptr;
    }
    if (m_open.size() >= handles) {
        errno = EMFILE;
        return nullptr;
    }
    if (mode == OpenMode::Truncate) {
        files[path].clear();
    }
    auto file = std::make_unique<OpenFile>(*this, path);
    openMost = std::max(openMost, m_open.size());
    return file;
}

bool MemoryDisk::exists(const std::string& path) {
    return files.contains(path) || isDirectory(path.substr(0, path.find_last_not_of('/') + 1));
}

int MemoryDisk::info(const std::string& path, FileInfo& info) {
    info.isDirectory = isDirectory(path);
    const auto file = files.find(path);
    info.size = file == files.end() ? 0 : static_cast<int64_t>(file->second.size());
    return exists(path) ? 0 : failWith(ENOENT);
}

int MemoryDisk::removeFile(const std::string& path) {
    if (isHeld(path)) {
        return failWith(EACCES);
    }
    return files.erase(path) == 1 ? 0 : failWith(ENOENT);
}

int MemoryDisk::rename(const std::string& from, const std::string& to) {
    if (isHeld(from) || isHeld(to)) {
        return failWith(EACCES);
    }
    if (files.contains(from) && !isDirectory(to)) {
        files[to] = std::move(files[from]);
        files.erase(from);
        return 0;
    }
    if (!isDirectory(from) || exists(to)) {
        return failWith(isDirectory(from) ? EEXIST : ENOENT);
    }
    std::map<std::string, Bytes> moved;
    for (auto& [path, bytes] : files) {
        const bool below = path.starts_with(from + "/");
        moved[below ? to + path.substr(from.size()) : path] = std::move(bytes);
    }
    files = std::move(moved);
    std::set<std::string> movedDirectories;
    for (const std::string& path : directories) {
        const bool below = path == from || path.starts_with(from + "/");
        movedDirectories.insert(below ? to + path.substr(from.size()) : path);
    }
    directories = std::move(movedDirectories);
    return 0;
}

int MemoryDisk::removeTree(const std::string&, const std::string& path) {
    const std::string start = withSlash(path);
    if (hasBelow(m_open, path)) {
        return failWith(EACCES);
    }
    std::erase_if(files, [&](const auto& file) { return file.first.starts_with(start); });
    std::erase_if(directories, [&](const std::string& directory) {
        return withSlash(directory).starts_with(start);
    });
    return 0;
}

int MemoryDisk::makeDirectory(const std::string& path) {
    directories.insert(path);
    return 0;
}

int MemoryDisk::removeDirectory(const std::string& path) {
    if (hasBelow(files, path) || hasBelow(directories, path)) {
        return failWith(ENOTEMPTY);
    }
    directories.erase(path);
    return 0;
}

int MemoryDisk::find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) {
    const size_t slash = pattern.rfind('/');
    const std::string directory = pattern.substr(0, slash + 1);
    const std::string wanted = pattern.substr(slash + 1);
    const std::string start = wanted.substr(0, wanted.find('*'));
    const std::string end = wanted.substr(wanted.find('*') + 1);
    std::map<std::string, uint32_t> found;
    for (const std::string& entry : names(directory)) {
        const std::string name = entry.substr(0, entry.find('/'));
        if (name.size() >= start.size() + end.size() && name.starts_with(start) &&
            name.ends_with(end)) {
            found[name] = name.size() < entry.size() ? g_attributeDirectory : 0;
        }
    }
    entries.clear();
    for (const auto& [name, attributes] : found) {
        entries.insert(entries.begin(), {name, attributes}); // descending: callers must sort
    }
    step = FindStep::First;
    return entries.empty() ? -1 : 0;
}

} // namespace kestrine::test
