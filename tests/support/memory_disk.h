// A disk in memory, for tests that work on very many small files. It is as strict as Windows can
// be: nothing that is open, or holds an open file, can be renamed or removed.
#pragma once

#include "support/forwarding_platform.h"

#include <map>
#include <set>

namespace kestrine::test {

class MemoryDisk : public ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;
    using Bytes = std::vector<uint8_t>;

    // A file's directories need not be made; empty ones stand in `directories`.
    std::map<std::string, Bytes> files;
    std::set<std::string> directories;
    size_t openMost = 0;       // files open at once
    size_t handles = SIZE_MAX; // no more than so many can be
    [[nodiscard]] size_t openNow() const { return m_open.size(); }
    // Entries below a path, relative to it; directories end in '/'.
    [[nodiscard]] std::set<std::string> names(const std::string& below) const;

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
    int syncDirectory(const std::string&) override { return 0; }
    int find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) override;

private:
    class OpenFile;

    [[nodiscard]] bool isDirectory(const std::string& path) const;
    [[nodiscard]] bool isHeld(const std::string& path) const;

    std::multiset<std::string> m_open;
};

} // namespace kestrine::test
