// A disk in memory, for tests that work on very many small files. It is as strict as Windows can
// be: nothing that is open, or holds an open file, can be renamed or removed.
//
// It can lose its power. Changes of directories (files created, renamed and removed, directories
// made and removed) are then undone, those excepted that were synced with their directory, from a
// random point on: of the order of all of them, or of each directory's own. What is undone in one
// directory takes along what followed there. Of a file's content what lies behind the size of its
// last sync is whole, cut at a random length, or zeros.
#pragma once

#include "support/forwarding_platform.h"

#include <map>
#include <random>
#include <set>

namespace kestrine::test {

class MemoryDisk : public ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;
    using Bytes = std::vector<uint8_t>;

    // A file's directories need not be made; empty ones stand in `directories`. Not so if `strict`,
    // where files also take the time of their writing.
    std::map<std::string, Bytes> files;
    std::set<std::string> directories;
    std::map<std::string, int64_t> times; // seconds since 1970, by path
    bool strict = false;
    size_t openMost = 0;       // files open at once
    size_t handles = SIZE_MAX; // no more than so many can be
    // Bytes that find room below a directory. A write stops half-way where it ends.
    std::string smallDirectory;
    std::optional<uint64_t> smallRoom;

    [[nodiscard]] size_t openNow() const { return m_open.size(); }
    // Entries below a path, relative to it; directories end in '/'.
    [[nodiscard]] std::set<std::string> names(const std::string& below) const;
    [[nodiscard]] uint64_t bytesBelow(const std::string& directory) const;

    // What is there now is durable, and changes are kept in mind from here on.
    void beginLosing();
    void losePower(uint64_t seed);

    uint32_t lastError() const override { return g_errorFileNotFound; }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override;
    bool exists(const std::string& path) override;
    int info(const std::string& path, FileInfo& info) override;
    int removeFile(const std::string& path) override;
    int rename(const std::string& from, const std::string& to) override;
    int move(const std::string&, const std::string& from, const std::string& to) override {
        return rename(from, to);
    }
    int removeTree(const std::string&, const std::string& path) override;
    int makeDirectory(const std::string& path) override;
    int removeDirectory(const std::string& path) override;
    int syncDirectory(const std::string& path) override;
    int find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) override;

private:
    class OpenFile;

    struct Change {
        std::function<void()> undo;
        std::set<std::string> directories; // that it touches
        bool durable = false;
        bool undone = false;
    };

    [[nodiscard]] bool isDirectory(const std::string& path) const;
    [[nodiscard]] bool isHeld(const std::string& path) const;
    [[nodiscard]] size_t roomFor(const std::string& path) const;
    void note(const std::vector<std::string>& paths, std::function<void()> undo);
    void forget(const std::string& path);
    void moveAll(const std::string& from, const std::string& to);
    void choose(std::mt19937_64& random);
    void tear(std::mt19937_64& random);

    std::multiset<std::string> m_open;
    bool m_losing = false;
    std::vector<Change> m_changes;
    std::map<std::string, size_t> m_unsynced; // durable size of what was written since, by path
};

} // namespace kestrine::test
