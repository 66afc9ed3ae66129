// A disk that fails, or stands still as after a kill, at a chosen change.
#pragma once

#include "support/forwarding_platform.h"

#include <cerrno>

namespace kestrine::test {

// Numbers the calls that change the disk from 1: opening a file that is created or emptied,
// writing, syncing, and the operations on directory entries. The chosen one fails with EIO and does
// nothing.
//
//   for (int n = 1;; ++n) {
//       FailingPlatform disk(n, FailingPlatform::Mode::FromThenOn);
//       ... run the operation ...
//       if (!disk.failed()) break; // it needs fewer than n changes
//   }
class FailingPlatform : public ForwardingPlatform {
public:
    // A disk on which nothing changes any more looks as a kill before that change leaves it.
    enum class Mode { Once, FromThenOn };

    FailingPlatform(int failAt, Mode mode, Platform& target = platform())
        : ForwardingPlatform(target), m_failAt(failAt), m_mode(mode) {}

    [[nodiscard]] int changes() const { return m_changes; }
    [[nodiscard]] bool failed() const { return m_failed; }

    uint32_t lastError() const override {
        return m_lastFailed ? static_cast<uint32_t>(EIO) : ForwardingPlatform::lastError();
    }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        const bool changes = mode == OpenMode::Truncate || mode == OpenMode::Append;
        if (changes && refuses()) {
            return nullptr;
        }
        auto file = ForwardingPlatform::open(path, mode);
        return file ? std::make_unique<WatchedFile>(*this, std::move(file)) : nullptr;
    }
    int removeFile(const std::string& path) override {
        return refuses() ? -1 : ForwardingPlatform::removeFile(path);
    }
    int rename(const std::string& from, const std::string& to) override {
        return refuses() ? -1 : ForwardingPlatform::rename(from, to);
    }
    int makeDirectory(const std::string& path) override {
        return refuses() ? -1 : ForwardingPlatform::makeDirectory(path);
    }
    int removeDirectory(const std::string& path) override {
        return refuses() ? -1 : ForwardingPlatform::removeDirectory(path);
    }
    int syncDirectory(const std::string& path) override {
        return refuses() ? -1 : ForwardingPlatform::syncDirectory(path);
    }
    int removeTree(const std::string& command, const std::string& path) override {
        return refuses() ? -1 : ForwardingPlatform::removeTree(command, path);
    }
    int move(const std::string& command, const std::string& from, const std::string& to) override {
        return refuses() ? -1 : ForwardingPlatform::move(command, from, to);
    }

private:
    class WatchedFile : public ForwardingFile {
    public:
        WatchedFile(FailingPlatform& disk, std::unique_ptr<File> target)
            : ForwardingFile(std::move(target)), m_disk(disk) {}
        int64_t write(std::span<const uint8_t> data) override {
            return m_disk.refuses() ? -1 : ForwardingFile::write(data);
        }
        int sync() override { return m_disk.refuses() ? -1 : ForwardingFile::sync(); }

    private:
        FailingPlatform& m_disk;
    };

    bool refuses() {
        ++m_changes;
        m_lastFailed = m_mode == Mode::Once ? m_changes == m_failAt : m_changes >= m_failAt;
        if (m_lastFailed) {
            m_failed = true;
            errno = EIO;
        }
        return m_lastFailed;
    }

    int m_failAt;
    Mode m_mode;
    int m_changes = 0;
    bool m_failed = false;
    bool m_lastFailed = false;
};

} // namespace kestrine::test
