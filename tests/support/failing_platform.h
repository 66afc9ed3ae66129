// A disk that fails, or stands still as after a kill, at a chosen call.
#pragma once

#include "support/forwarding_platform.h"

#include <cerrno>

namespace kestrine::test {

// Numbers either the calls that change the disk from 1 (opening a file that is created or emptied,
// writing, syncing, and the operations on directory entries) or those that read it. What the chosen
// one does is the mode; a call that fails does nothing.
class FailingPlatform : public ForwardingPlatform {
public:
    enum class Mode {
        Once,       // it fails
        FromThenOn, // it and all later ones of its kind fail
        Kill,       // so does every call of either kind: the disk stays as a kill leaves it
        ShortWrite, // a write stops half-way; any other call fails
        Full,       // nothing finds room any more; what needs none succeeds
    };
    enum class Calls { Changing, Reading };

    FailingPlatform(int failAt, Mode mode, Platform& target = platform(),
                    Calls calls = Calls::Changing)
        : ForwardingPlatform(target), m_failAt(failAt), m_mode(mode), m_calls(calls) {}

    int error = EIO;
    // Whether calls on a path count at all.
    std::function<bool(const std::string&)> concerns;
    // Called at each call that counts, with its number and name.
    std::function<void(int, const char*)> onCall;
    std::function<void()> onKill;

    [[nodiscard]] int calls() const { return m_count; }
    [[nodiscard]] bool failed() const { return m_failed; }

    uint32_t lastError() const override {
        return m_lastFailed ? static_cast<uint32_t>(error) : ForwardingPlatform::lastError();
    }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        const bool changes = mode == OpenMode::Truncate || mode == OpenMode::Append;
        if (changes ? hits(ChangeNeedingRoom, path, "create") : hits(Read, path, "open")) {
            return nullptr;
        }
        auto file = ForwardingPlatform::open(path, mode);
        return file ? std::make_unique<WatchedFile>(*this, path, std::move(file)) : nullptr;
    }
    bool exists(const std::string& path) override {
        return hits(Read, path, "exists") || ForwardingPlatform::exists(path);
    }
    int info(const std::string& path, FileInfo& info) override {
        return hits(Read, path, "info") ? -1 : ForwardingPlatform::info(path, info);
    }
    int find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) override {
        if (hits(Read, pattern, "find")) {
            step = FindStep::First;
            return -1;
        }
        return ForwardingPlatform::find(pattern, entries, step);
    }
    int freeSpace(const std::string& path, uint64_t& bytes) override {
        return hits(Read, path, "free space") ? -1 : ForwardingPlatform::freeSpace(path, bytes);
    }
    int removeFile(const std::string& path) override {
        return hits(Change, path, "remove") ? -1 : ForwardingPlatform::removeFile(path);
    }
    int rename(const std::string& from, const std::string& to) override {
        return hits(Change, from, "rename") ? -1 : ForwardingPlatform::rename(from, to);
    }
    int makeDirectory(const std::string& path) override {
        return hits(ChangeNeedingRoom, path, "make directory")
                   ? -1
                   : ForwardingPlatform::makeDirectory(path);
    }
    int removeDirectory(const std::string& path) override {
        return hits(Change, path, "remove directory") ? -1
                                                      : ForwardingPlatform::removeDirectory(path);
    }
    int syncDirectory(const std::string& path) override {
        return hits(Change, path, "sync directory") ? -1 : ForwardingPlatform::syncDirectory(path);
    }
    int removeTree(const std::string& command, const std::string& path) override {
        return hits(Change, path, "remove tree") ? -1
                                                 : ForwardingPlatform::removeTree(command, path);
    }
    int move(const std::string& command, const std::string& from, const std::string& to) override {
        return hits(Change, from, "move") ? -1 : ForwardingPlatform::move(command, from, to);
    }

private:
    enum Kind { Read, Change, ChangeNeedingRoom };

    class WatchedFile : public ForwardingFile {
    public:
        WatchedFile(FailingPlatform& disk, std::string path, std::unique_ptr<File> target)
            : ForwardingFile(std::move(target)), m_disk(disk), m_path(std::move(path)) {}
        int64_t read(std::span<uint8_t> buffer) override {
            return m_disk.hits(Read, m_path, "read") ? -1 : ForwardingFile::read(buffer);
        }
        int64_t write(std::span<const uint8_t> data) override {
            if (!m_disk.hits(ChangeNeedingRoom, m_path, "write")) {
                return ForwardingFile::write(data);
            }
            if (m_disk.m_mode != Mode::ShortWrite) {
                return -1;
            }
            const int64_t written = ForwardingFile::write(data.first(data.size() / 2));
            errno = m_disk.error;
            return written;
        }
        int seek(int64_t offset) override {
            return m_disk.hits(Read, m_path, "seek") ? -1 : ForwardingFile::seek(offset);
        }
        int64_t size() override {
            return m_disk.hits(Read, m_path, "size") ? -1 : ForwardingFile::size();
        }
        int sync() override {
            return m_disk.hits(Change, m_path, "sync") ? -1 : ForwardingFile::sync();
        }

    private:
        FailingPlatform& m_disk;
        std::string m_path;
    };

    bool hits(Kind kind, const std::string& path, const char* what) {
        const Calls calls = kind == Read ? Calls::Reading : Calls::Changing;
        m_lastFailed = false;
        if (concerns && !concerns(path)) {
            return false;
        }
        if (calls == m_calls && onCall) {
            onCall(m_count + 1, what);
        }
        m_count += calls == m_calls ? 1 : 0;
        const bool here = calls == m_calls && m_count == m_failAt;
        const bool since = m_count >= m_failAt && (m_mode == Mode::Kill || calls == m_calls);
        const bool lasting =
            m_mode == Mode::FromThenOn || m_mode == Mode::Kill || m_mode == Mode::Full;
        m_lastFailed =
            (lasting ? since : here) && (m_mode != Mode::Full || kind == ChangeNeedingRoom);
        if (m_lastFailed && !m_failed && m_mode == Mode::Kill && onKill) {
            onKill();
        }
        m_failed = m_failed || m_lastFailed;
        if (m_lastFailed) {
            errno = error;
        }
        return m_lastFailed;
    }

    int m_failAt;
    Mode m_mode;
    Calls m_calls;
    int m_count = 0;
    bool m_failed = false;
    bool m_lastFailed = false;
};

} // namespace kestrine::test
