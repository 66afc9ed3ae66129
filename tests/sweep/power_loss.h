// What a disk may look like after a power failure: everything that was not made durable can be
// gone.
//
// Directory changes (creations, renames, removals, made and removed directories) are kept in order
// with the directories that they touch; syncing a directory makes its changes so far durable. File
// content is durable up to the size at the file's last sync. `strike` then takes away
//
//   directory changes   from a random point of the whole order on, or from a random point of each
//                       directory's own order on, undone last first
//   file content        behind the durable size: whole, cut at a random length, or turned to zeros
//
// Removed and replaced files are kept aside until then, so that a removal can be undone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace kestrine::test {

class PowerLoss {
public:
    explicit PowerLoss(std::filesystem::path keptAside) : m_keptAside(std::move(keptAside)) {}

    // ---- before the change is made; each moves aside what the change would destroy
    void creating(const std::string& path);
    void renaming(const std::string& from, const std::string& to);
    void removing(const std::string& path); // takes the file away: nothing is left to remove
    void makingDirectory(const std::string& path);
    void removingDirectory(const std::string& path);

    // ---- content and durability
    void wrote(const std::string& path) { m_content[path].dirty = true; }
    void synced(const std::string& path);
    void directorySynced(const std::string& path);

    void strike(uint64_t seed);

private:
    enum class Kind { Create, Rename, Remove, MakeDirectory, RemoveDirectory };
    struct Change {
        Kind kind;
        std::string path;
        std::string to;               // of a rename
        std::filesystem::path saved;  // what a removal or rename destroyed
        std::vector<int> directories; // that it touches
        bool durable = false;
        bool undone = false;
    };
    struct Content {
        uintmax_t durableSize = 0;
        bool dirty = false;
    };

    int directoryOf(const std::string& path);
    std::filesystem::path keepAside(const std::string& path);
    void moveContent(const std::string& from, const std::string& to);
    void choose(std::mt19937_64& random);
    void undo(Change& change);
    void tear(std::mt19937_64& random);

    std::filesystem::path m_keptAside;
    std::vector<Change> m_changes;
    std::map<std::string, int> m_directories; // identity by current path
    std::map<std::string, Content> m_content;
    int m_saved = 0;
};

} // namespace kestrine::test
