// A platform on which everything can be looked at and nothing changes.
#pragma once

#include "platform/platform.h"

#include <string>
#include <vector>

namespace kestrine {

// Stands in place of the platform that it finds, for as long as it lives. Every change seems to
// succeed and is not made; names and locks are let go at once. What would go to the standard error
// stream is kept instead.
class DryRunPlatform final : public Platform {
public:
    DryRunPlatform();
    ~DryRunPlatform() override;
    DryRunPlatform(const DryRunPlatform&) = delete;
    DryRunPlatform& operator=(const DryRunPlatform&) = delete;

    // Lines for the standard error stream, as they came.
    [[nodiscard]] const std::vector<std::string>& errors() const { return m_errors; }

    // ---- changes
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override;
    int removeFile(const std::string&) override { return 0; }
    int rename(const std::string&, const std::string&) override { return 0; }
    int makeDirectory(const std::string&) override { return 0; }
    int removeDirectory(const std::string&) override { return 0; }
    int syncDirectory(const std::string&) override { return 0; }
    int removeTree(const std::string&, const std::string&) override { return 0; }
    int move(const std::string&, const std::string&, const std::string&) override { return 0; }
    int installSignalHandler(std::span<const int>, void (*)(int)) override { return 0; }
    NamedEventResult createNamedEvent(const std::string& name,
                                      std::unique_ptr<NamedEvent>& event) override;
    // A file that is not there is locked by nobody.
    LockResult lockFile(const std::string& path, std::unique_ptr<NamedEvent>& lock) override;
    void writeConsole(std::string_view text, bool toError) override;

    // ---- all the rest is handed on
    uint32_t lastError() const override { return m_target.lastError(); }
    bool exists(const std::string& path) override { return m_target.exists(path); }
    int info(const std::string& path, FileInfo& info) override { return m_target.info(path, info); }
    int find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) override {
        return m_target.find(pattern, entries, step);
    }
    int freeSpace(const std::string& path, uint64_t& bytes) override {
        return m_target.freeSpace(path, bytes);
    }
    std::string resolvedPath(const std::string& path) override {
        return m_target.resolvedPath(path);
    }
    bool isVolumeRoot(const std::string& path) override { return m_target.isVolumeRoot(path); }
    int compareFileNames(const std::string& a, const std::string& b) const override {
        return m_target.compareFileNames(a, b);
    }
    bool isPlainPath(const std::string& path) const override { return m_target.isPlainPath(path); }
    int64_t now() override { return m_target.now(); }
    LocalTime localTime() override { return m_target.localTime(); }
    uint32_t tickCount() override { return m_target.tickCount(); }
    int64_t bootTime() override { return m_target.bootTime(); }
    void sleep(uint32_t milliseconds) override { m_target.sleep(milliseconds); }
    std::string executablePath() override { return m_target.executablePath(); }
    void prepareConsole() override { m_target.prepareConsole(); }

private:
    Platform& m_target;
    Platform* m_previous; // as `setPlatform` wants it back
    std::vector<std::string> m_errors;
};

} // namespace kestrine
