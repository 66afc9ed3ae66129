#include "power_loss.h"

#include <algorithm>
#include <fstream>

namespace kestrine::test {

namespace fs = std::filesystem;

int PowerLoss::directoryOf(const std::string& path) {
    const std::string directory = fs::path(path).parent_path().generic_string();
    return m_directories.try_emplace(directory, static_cast<int>(m_directories.size()))
        .first->second;
}

fs::path PowerLoss::keepAside(const std::string& path) {
    fs::create_directories(m_keptAside);
    const fs::path saved = m_keptAside / std::to_string(m_saved++);
    fs::rename(path, saved);
    return saved;
}

void PowerLoss::creating(const std::string& path) {
    if (!fs::exists(path)) {
        m_changes.push_back({Kind::Create, path, {}, {}, {directoryOf(path)}});
    }
    m_content[path] = {0, true};
}

void PowerLoss::renaming(const std::string& from, const std::string& to) {
    if (!fs::exists(from)) {
        return;
    }
    fs::path saved;
    if (fs::is_regular_file(from) && fs::is_regular_file(to)) {
        saved = keepAside(to);
    } else if (fs::exists(to)) {
        return; // will be refused
    }
    m_changes.push_back({Kind::Rename, from, to, saved, {directoryOf(from), directoryOf(to)}});
    moveContent(from, to);
}

void PowerLoss::moveContent(const std::string& from, const std::string& to) {
    const auto moveKeys = [&](auto& keyed) {
        auto old = std::move(keyed);
        keyed.clear();
        for (auto& [path, value] : old) {
            const bool inside = path == from || path.starts_with(from + "/");
            keyed[inside ? to + path.substr(from.size()) : path] = value;
        }
    };
    moveKeys(m_content);
    moveKeys(m_directories);
}

void PowerLoss::removing(const std::string& path) {
    if (fs::is_regular_file(path)) {
        m_changes.push_back({Kind::Remove, path, {}, keepAside(path), {directoryOf(path)}});
        m_content.erase(path);
    }
}

void PowerLoss::makingDirectory(const std::string& path) {
    if (!fs::exists(path)) {
        m_changes.push_back({Kind::MakeDirectory, path, {}, {}, {directoryOf(path)}});
    }
}

void PowerLoss::removingDirectory(const std::string& path) {
    if (fs::is_directory(path) && fs::is_empty(path)) {
        m_changes.push_back({Kind::RemoveDirectory, path, {}, {}, {directoryOf(path)}});
    }
}

void PowerLoss::synced(const std::string& path) {
    m_content[path] = {fs::file_size(path), false};
}

void PowerLoss::directorySynced(const std::string& path) {
    const int directory = directoryOf(path + "/x");
    for (Change& change : m_changes) {
        change.durable =
            change.durable || std::find(change.directories.begin(), change.directories.end(),
                                        directory) != change.directories.end();
    }
}

void PowerLoss::strike(uint64_t seed) {
    std::mt19937_64 random(seed);
    choose(random);
    for (auto change = m_changes.rbegin(); change != m_changes.rend(); ++change) {
        if (change->undone) {
            undo(*change);
        }
    }
    tear(random);
}

// A change that touches two directories is undone if either has lost it, and what follows it in
// either is then lost too.
void PowerLoss::choose(std::mt19937_64& random) {
    const bool oneOrder = random() % 2 == 0;
    const size_t global = random() % (m_changes.size() + 1);
    std::map<int, size_t> cuts;
    for (const Change& change : m_changes) {
        for (const int directory : change.directories) {
            cuts.try_emplace(directory, oneOrder ? global : random() % (m_changes.size() + 1));
        }
    }
    for (size_t i = 0; i < m_changes.size(); ++i) {
        Change& change = m_changes[i];
        if (change.durable) {
            continue;
        }
        change.undone = std::any_of(change.directories.begin(), change.directories.end(),
                                    [&](int directory) { return cuts[directory] <= i; });
        for (const int directory : change.directories) {
            cuts[directory] = change.undone ? std::min(cuts[directory], i) : cuts[directory];
        }
    }
}

void PowerLoss::undo(Change& change) {
    std::error_code ignored;
    switch (change.kind) {
    case Kind::Create:
        fs::remove(change.path, ignored);
        m_content.erase(change.path);
        break;
    case Kind::Rename:
        fs::rename(change.to, change.path, ignored);
        moveContent(change.to, change.path);
        if (!change.saved.empty()) {
            fs::rename(change.saved, change.to, ignored);
        }
        break;
    case Kind::Remove:
        fs::rename(change.saved, change.path, ignored);
        break;
    case Kind::MakeDirectory:
        fs::remove_all(change.path, ignored);
        break;
    case Kind::RemoveDirectory:
        fs::create_directory(change.path, ignored);
        break;
    }
}

void PowerLoss::tear(std::mt19937_64& random) {
    for (const auto& [path, content] : m_content) {
        std::error_code error;
        const uintmax_t size = fs::file_size(path, error);
        if (error || !content.dirty || size <= content.durableSize) {
            continue;
        }
        const uintmax_t kept = content.durableSize + random() % (size - content.durableSize + 1);
        switch (random() % 4) {
        case 0:
            break; // all of it was written
        case 1:
            fs::resize_file(path, content.durableSize, error);
            break;
        case 2:
            fs::resize_file(path, kept, error);
            break;
        default: // the length is there, the bytes are not
            fs::resize_file(path, kept, error);
            fs::resize_file(path, size, error);
        }
    }
}

} // namespace kestrine::test
