// Platforms that stand on another one, which was in place when they were made.
#pragma once

#include "platform/platform.h"

#include <memory>
#include <string>
#include <vector>

namespace kestrine {

// Puts a platform in place for a scope.
class ScopedPlatform {
public:
    explicit ScopedPlatform(Platform& replacement) : m_previous(setPlatform(&replacement)) {}
    ~ScopedPlatform() { setPlatform(m_previous); }
    ScopedPlatform(const ScopedPlatform&) = delete;
    ScopedPlatform& operator=(const ScopedPlatform&) = delete;

private:
    Platform* m_previous;
};

// Hands every call on; what stands on it overrides what it changes.
class ForwardingPlatform : public Platform {
public:
    explicit ForwardingPlatform(Platform& target = platform()) : m_target(target) {}

    uint32_t lastError() const override { return m_target.lastError(); }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        return m_target.open(path, mode);
    }
    bool exists(const std::string& path) override { return m_target.exists(path); }
    int info(const std::string& path, FileInfo& info) override { return m_target.info(path, info); }
    int removeFile(const std::string& path) override { return m_target.removeFile(path); }
    int rename(const std::string& from, const std::string& to) override {
        return m_target.rename(from, to);
    }
    int makeDirectory(const std::string& path) override { return m_target.makeDirectory(path); }
    int removeDirectory(const std::string& path) override { return m_target.removeDirectory(path); }
    int syncDirectory(const std::string& path) override { return m_target.syncDirectory(path); }
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
    int removeTree(const std::string& command, const std::string& path) override {
        return m_target.removeTree(command, path);
    }
    int move(const std::string& command, const std::string& from, const std::string& to) override {
        return m_target.move(command, from, to);
    }
    int64_t now() override { return m_target.now(); }
    LocalTime localTime() override { return m_target.localTime(); }
    uint32_t tickCount() override { return m_target.tickCount(); }
    int64_t bootTime() override { return m_target.bootTime(); }
    void sleep(uint32_t milliseconds) override { m_target.sleep(milliseconds); }
    std::string executablePath() override { return m_target.executablePath(); }
    NamedEventResult createNamedEvent(const std::string& name,
                                      std::unique_ptr<NamedEvent>& event) override {
        return m_target.createNamedEvent(name, event);
    }
    LockResult lockFile(const std::string& path, std::unique_ptr<NamedEvent>& lock) override {
        return m_target.lockFile(path, lock);
    }
    LockResult lockFileShared(const std::string& path, std::unique_ptr<NamedEvent>& lock) override {
        return m_target.lockFileShared(path, lock);
    }
    LockResult lockFileBytes(const std::string& path, uint64_t first, uint64_t count,
                             std::unique_ptr<NamedEvent>& lock) override {
        return m_target.lockFileBytes(path, first, count, lock);
    }
    LockResult probeLock(const std::string& path) override { return m_target.probeLock(path); }
    LockResult probeSharedLock(const std::string& path) override {
        return m_target.probeSharedLock(path);
    }
    void prepareConsole() override { m_target.prepareConsole(); }
    int terminalWidth(bool ofError) override { return m_target.terminalWidth(ofError); }
    void writeConsole(std::string_view text, bool toError) override {
        m_target.writeConsole(text, toError);
    }
    int installSignalHandler(std::span<const int> signals, void (*handler)(int)) override {
        return m_target.installSignalHandler(signals, handler);
    }
    int startProgram(const std::string& program, std::span<const std::string> arguments,
                     std::unique_ptr<ChildProcess>& child) override {
        return m_target.startProgram(program, arguments, child);
    }
    uint32_t processorCount() override { return m_target.processorCount(); }
    uint32_t supervisorPatience() override { return m_target.supervisorPatience(); }
    int tellSupervisor(Notice notice, const std::string& status) override {
        return m_target.tellSupervisor(notice, status);
    }

private:
    Platform& m_target;
};

// Hands every call of a file on.
class ForwardingFile : public File {
public:
    explicit ForwardingFile(std::unique_ptr<File> target) : m_target(std::move(target)) {}
    int64_t read(std::span<uint8_t> buffer) override { return m_target->read(buffer); }
    int64_t write(std::span<const uint8_t> data) override { return m_target->write(data); }
    int seek(int64_t offset) override { return m_target->seek(offset); }
    int64_t tell() override { return m_target->tell(); }
    int64_t size() override { return m_target->size(); }
    int sync() override { return m_target->sync(); }
    int close() override { return m_target->close(); }

private:
    std::unique_ptr<File> m_target;
};

} // namespace kestrine
