// A platform on which everything can be looked at and nothing changes.
#pragma once

#include "platform/forwarding_platform.h"

#include <string>
#include <vector>

namespace kestrine {

// Stands in place of the platform that it finds, for as long as it lives. Every change seems to
// succeed and is not made; names are let go at once, locks only looked at. What would go to the
// standard error stream is kept instead.
class DryRunPlatform final : public ForwardingPlatform {
public:
    // Lines for the standard error stream, as they came.
    [[nodiscard]] const std::vector<std::string>& errors() const { return m_errors; }

    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override;
    int removeFile(const std::string&) override { return 0; }
    int rename(const std::string&, const std::string&) override { return 0; }
    int makeDirectory(const std::string&) override { return 0; }
    int removeDirectory(const std::string&) override { return 0; }
    int syncDirectory(const std::string&) override { return 0; }
    int removeTree(const std::string&, const std::string&) override { return 0; }
    int move(const std::string&, const std::string&, const std::string&) override { return 0; }
    int installSignalHandler(std::span<const int>, void (*)(int)) override { return 0; }
    int tellSupervisor(Notice, const std::string&) override { return 0; }
    NamedEventResult createNamedEvent(const std::string& name,
                                      std::unique_ptr<NamedEvent>& event) override;
    // A file that is not there is locked by nobody.
    LockResult lockFile(const std::string& path, std::unique_ptr<NamedEvent>&) override {
        return probeSharedLock(path);
    }
    LockResult lockFileShared(const std::string& path, std::unique_ptr<NamedEvent>&) override {
        return probeLock(path);
    }
    LockResult lockFileBytes(const std::string&, uint64_t, uint64_t,
                             std::unique_ptr<NamedEvent>&) override {
        return LockResult::Locked;
    }
    void writeConsole(std::string_view text, bool toError) override;
    // What a program would change nobody knows.
    int startProgram(const std::string&, std::span<const std::string>,
                     std::unique_ptr<ChildProcess>&) override;

private:
    ScopedPlatform m_scope{*this};
    std::vector<std::string> m_errors;
};

} // namespace kestrine
