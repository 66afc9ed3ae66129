#include "support/memory_disk.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace kestrine::test {

namespace {

std::string withSlash(const std::string& path) {
    return path.ends_with('/') ? path : path + '/';
}

const std::string& keyOf(const std::string& path) {
    return path;
}
template <typename Value>
const std::string& keyOf(const std::pair<const std::string, Value>& entry) {
    return entry.first;
}

// Whether a sorted container of paths has one below the directory.
template <typename Paths>
bool hasBelow(const Paths& paths, const std::string& directory) {
    const auto place = paths.lower_bound(withSlash(directory));
    return place != paths.end() && keyOf(*place).starts_with(withSlash(directory));
}

// The path that a node of such a container has.
template <typename Node>
std::string& keyOfNode(Node& node) {
    if constexpr (requires { node.mapped(); }) {
        return node.key();
    } else {
        return node.value();
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
        const size_t room = std::min(data.size(), m_disk.roomFor(*m_place));
        if (room < data.size()) {
            errno = ENOSPC;
        }
        m_disk.m_unsynced.try_emplace(*m_place, m_bytes.size());
        m_bytes.insert(m_bytes.end(), data.begin(), data.begin() + static_cast<ptrdiff_t>(room));
        m_at = m_bytes.size();
        return room == 0 && !data.empty() ? -1 : static_cast<int64_t>(room);
    }
    int seek(int64_t offset) override {
        m_at = std::min(static_cast<size_t>(offset), m_bytes.size());
        return 0;
    }
    int64_t tell() override { return static_cast<int64_t>(m_at); }
    int64_t size() override { return static_cast<int64_t>(m_bytes.size()); }
    int sync() override {
        m_disk.m_unsynced.erase(*m_place);
        return 0;
    }
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

uint64_t MemoryDisk::bytesBelow(const std::string& directory) const {
    uint64_t bytes = 0;
    for (auto file = files.lower_bound(withSlash(directory));
         file != files.end() && file->first.starts_with(withSlash(directory)); ++file) {
        bytes += file->second.size();
    }
    return bytes;
}

size_t MemoryDisk::roomFor(const std::string& path) const {
    if (!smallRoom || !path.starts_with(smallDirectory)) {
        return SIZE_MAX;
    }
    return *smallRoom - std::min(*smallRoom, bytesBelow(smallDirectory));
}

std::unique_ptr<File> MemoryDisk::open(const std::string& path, OpenMode mode) {
    const bool writes = mode == OpenMode::Truncate;
    const std::string parent = path.substr(0, path.rfind('/') + 1);
    if (isDirectory(path) || (!writes && !files.contains(path)) ||
        (writes && strict && !parent.empty() && !exists(parent))) {
        errno = ENOENT;
        return nullptr;
    }
    if (m_open.size() >= handles) {
        errno = EMFILE;
        return nullptr;
    }
    if (writes) {
        if (!files.contains(path)) {
            note({path}, [this, path] { forget(path); });
        }
        files[path].clear();
        if (strict) {
            times[path] = now();
        }
        m_unsynced[path] = 0;
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
    if (const auto time = times.find(path); time != times.end()) {
        info.modified = time->second;
    }
    return exists(path) ? 0 : failWith(ENOENT);
}

int MemoryDisk::removeFile(const std::string& path) {
    if (isHeld(path)) {
        return failWith(EACCES);
    }
    const auto file = files.find(path);
    if (file == files.end()) {
        return failWith(ENOENT);
    }
    note({path}, [this, path, bytes = file->second] { files[path] = bytes; });
    forget(path);
    return 0;
}

void MemoryDisk::forget(const std::string& path) {
    files.erase(path);
    times.erase(path);
    m_unsynced.erase(path);
}

int MemoryDisk::rename(const std::string& from, const std::string& to) {
    if (isHeld(from) || isHeld(to)) {
        return failWith(EACCES);
    }
    const bool file = files.contains(from);
    if (!exists(from) || (strict && !exists(to.substr(0, to.rfind('/') + 1)))) {
        return failWith(ENOENT);
    }
    if (file ? isDirectory(to) : exists(to)) {
        return failWith(EEXIST);
    }
    std::optional<Bytes> replaced;
    if (const auto target = files.find(to); target != files.end()) {
        replaced = std::move(target->second);
        forget(to);
    }
    moveAll(from, to);
    note({from, to}, [this, from, to, replaced] {
        moveAll(to, from);
        if (replaced) {
            files[to] = *replaced;
        }
    });
    return 0;
}

// Everything that is known of a path, or lies below it.
void MemoryDisk::moveAll(const std::string& from, const std::string& to) {
    const auto moveKeys = [&](auto& paths) {
        const auto move = [&](auto place) {
            auto node = paths.extract(place);
            std::string& path = keyOfNode(node);
            path.replace(0, from.size(), to);
            paths.insert(std::move(node));
        };
        if (const auto place = paths.find(from); place != paths.end()) {
            move(place);
        }
        while (hasBelow(paths, from)) {
            move(paths.lower_bound(withSlash(from)));
        }
    };
    moveKeys(files);
    moveKeys(directories);
    moveKeys(times);
    moveKeys(m_unsynced);
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
    if (!directories.insert(path).second) {
        return failWith(EEXIST);
    }
    note({path}, [this, path] { (void)removeTree({}, path); });
    return 0;
}

int MemoryDisk::removeDirectory(const std::string& path) {
    if (hasBelow(files, path) || hasBelow(directories, path)) {
        return failWith(ENOTEMPTY);
    }
    if (directories.erase(path) == 1) {
        note({path}, [this, path] { directories.insert(path); });
    }
    return 0;
}

int MemoryDisk::syncDirectory(const std::string& path) {
    for (Change& change : m_changes) {
        change.durable = change.durable || change.directories.contains(path);
    }
    return 0;
}

void MemoryDisk::beginLosing() {
    m_losing = true;
    m_changes.clear();
    m_unsynced.clear();
}

void MemoryDisk::note(const std::vector<std::string>& paths, std::function<void()> undo) {
    if (m_losing) {
        Change& change = m_changes.emplace_back();
        change.undo = std::move(undo);
        for (const std::string& path : paths) {
            change.directories.insert(path.substr(0, path.rfind('/')));
        }
    }
}

void MemoryDisk::losePower(uint64_t seed) {
    m_losing = false;
    std::mt19937_64 random(seed);
    choose(random);
    for (auto change = m_changes.rbegin(); change != m_changes.rend(); ++change) {
        if (change->undone) {
            change->undo();
        }
    }
    tear(random);
    m_changes.clear();
    m_unsynced.clear();
}

// A change that touches two directories is undone if either has lost it, and what follows it in
// either is then lost too.
void MemoryDisk::choose(std::mt19937_64& random) {
    const bool oneOrder = random() % 2 == 0;
    const size_t global = random() % (m_changes.size() + 1);
    std::map<std::string, size_t> cuts;
    for (const Change& change : m_changes) {
        for (const std::string& directory : change.directories) {
            cuts.try_emplace(directory, oneOrder ? global : random() % (m_changes.size() + 1));
        }
    }
    for (size_t i = 0; i < m_changes.size(); ++i) {
        Change& change = m_changes[i];
        if (change.durable) {
            continue;
        }
        change.undone = std::ranges::any_of(
            change.directories, [&](const std::string& directory) { return cuts[directory] <= i; });
        for (const std::string& directory : change.directories) {
            cuts[directory] = change.undone ? std::min(cuts[directory], i) : cuts[directory];
        }
    }
}

void MemoryDisk::tear(std::mt19937_64& random) {
    for (const auto& [path, durable] : m_unsynced) {
        const auto file = files.find(path);
        if (file == files.end() || file->second.size() <= durable) {
            continue;
        }
        Bytes& bytes = file->second;
        const size_t size = bytes.size();
        const size_t some = durable + random() % (size - durable + 1);
        bytes.resize(std::array{size, durable, some}[random() % 3]);
        if (random() % 3 == 0) {
            bytes.resize(size); // the length is there, the bytes are not
        }
    }
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
