#include "fault_platform.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace kestrine::test {

namespace {

bool isLogFile(const std::string& path) {
    return path.find("/log/kestrine") != std::string::npos;
}

} // namespace

class FaultPlatform::WatchedFile : public File {
public:
    WatchedFile(FaultPlatform& disk, std::string path, std::unique_ptr<File> target)
        : m_disk(disk), m_path(std::move(path)), m_target(std::move(target)) {}

    int64_t read(std::span<uint8_t> buffer) override { return m_target->read(buffer); }
    int64_t write(std::span<const uint8_t> data) override {
        if (m_disk.tracks(m_path)) {
            m_disk.m_powerLoss.wrote(m_path);
        }
        if (const uint64_t room = m_disk.roomFor(m_path); room < data.size()) {
            const int64_t written = room == 0 ? -1 : m_target->write(data.first(room));
            errno = ENOSPC;
            return written;
        }
        if (!m_disk.refuses(m_path, "write")) {
            return m_target->write(data);
        }
        if (m_disk.m_plan.fault != Fault::ShortWrite) {
            return -1;
        }
        const int64_t written = m_target->write(data.first(data.size() / 2));
        errno = m_disk.m_plan.error;
        return written;
    }
    int seek(int64_t offset) override { return m_target->seek(offset); }
    int64_t tell() override { return m_target->tell(); }
    int64_t size() override { return m_target->size(); }
    int sync() override {
        if (m_disk.refuses(m_path, "sync")) {
            return -1;
        }
        if (m_disk.tracks(m_path)) {
            m_disk.m_powerLoss.synced(m_path);
        }
        return 0; // no real power failure is waited for
    }
    int close() override { return m_target->close(); }

private:
    FaultPlatform& m_disk;
    std::string m_path;
    std::unique_ptr<File> m_target;
};

FaultPlatform::FaultPlatform(std::string scope, const std::string& keptAside, FaultPlan plan)
    : FakeClockPlatform(systemPlatform()), m_scope(std::move(scope)), m_plan(plan),
      m_powerLoss(keptAside) {
    freeBytes = uint64_t{1} << 40;
    seconds = g_now;
    ticks = 1000;
}

bool FaultPlatform::tracks(const std::string& path) const {
    return m_plan.fault == Fault::PowerLoss && path.starts_with(m_scope);
}

// Whether this change is one at which the disk goes wrong.
bool FaultPlatform::hits(const char* what) const {
    constexpr std::array<std::string_view, 3> needRoom = {"create", "write", "make directory"};
    switch (m_plan.fault) {
    case Fault::FailOn:
        return m_changes >= m_plan.at;
    case Fault::Full:
        return m_changes >= m_plan.at &&
               std::find(needRoom.begin(), needRoom.end(), what) != needRoom.end();
    default:
        return m_changes == m_plan.at;
    }
}

// Bytes that still find room in a file.
uint64_t FaultPlatform::roomFor(const std::string& path) const {
    if (!smallDiskRoom || !path.starts_with(smallDisk)) {
        return ~uint64_t{0};
    }
    uint64_t used = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(smallDisk)) {
        used += entry.is_regular_file() ? entry.file_size() : 0;
    }
    return *smallDiskRoom - std::min(used, *smallDiskRoom);
}

bool FaultPlatform::refuses(const std::string& path, const char* what) {
    m_lastFailed = false;
    if (!path.starts_with(m_scope)) {
        return false;
    }
    ++m_changes;
    if (onChange) {
        onChange(m_changes, what);
    }
    if (!hits(what)) {
        return false;
    }
    switch (m_plan.fault) {
    case Fault::None:
        return false;
    case Fault::PowerLoss:
        m_powerLoss.strike(m_plan.seed);
        [[fallthrough]];
    case Fault::Kill:
        std::_Exit(g_killedExit);
    default:
        m_lastFailed = true;
        errno = m_plan.error;
        return true;
    }
}

uint32_t FaultPlatform::lastError() const {
    return m_lastFailed ? static_cast<uint32_t>(m_plan.error) : ForwardingPlatform::lastError();
}

uint32_t FaultPlatform::tickCount() {
    if (m_plan.startUpOnly) {
        std::_Exit(g_startUpOverExit);
    }
    return FakeClockPlatform::tickCount();
}

std::unique_ptr<File> FaultPlatform::open(const std::string& path, OpenMode mode) {
    if (isLogFile(path) || (hidden && hidden(path))) {
        errno = ENOENT;
        return nullptr;
    }
    const bool changes = mode == OpenMode::Truncate || mode == OpenMode::Append;
    if (changes && refuses(path, "create")) {
        return nullptr;
    }
    if (changes && tracks(path)) {
        m_powerLoss.creating(path);
    }
    auto file = ForwardingPlatform::open(path, mode);
    if (file && changes) {
        return std::make_unique<WatchedFile>(*this, path, std::move(file));
    }
    return file;
}

bool FaultPlatform::exists(const std::string& path) {
    return isLogFile(path) || (!(hidden && hidden(path)) && ForwardingPlatform::exists(path));
}

int FaultPlatform::removeFile(const std::string& path) {
    if (refuses(path, "remove")) {
        return -1;
    }
    if (tracks(path) && ForwardingPlatform::exists(path)) {
        m_powerLoss.removing(path);
        return 0;
    }
    return ForwardingPlatform::removeFile(path);
}

int FaultPlatform::rename(const std::string& from, const std::string& to) {
    if (refuses(from, "rename")) {
        return -1;
    }
    if (tracks(from)) {
        m_powerLoss.renaming(from, to);
    }
    return ForwardingPlatform::rename(from, to);
}

int FaultPlatform::makeDirectory(const std::string& path) {
    if (refuses(path, "make directory")) {
        return -1;
    }
    if (tracks(path)) {
        m_powerLoss.makingDirectory(path);
    }
    return ForwardingPlatform::makeDirectory(path);
}

int FaultPlatform::removeDirectory(const std::string& path) {
    if (refuses(path, "remove directory")) {
        return -1;
    }
    if (tracks(path)) {
        m_powerLoss.removingDirectory(path);
    }
    return ForwardingPlatform::removeDirectory(path);
}

int FaultPlatform::syncDirectory(const std::string& path) {
    if (refuses(path, "sync directory")) {
        return -1;
    }
    if (tracks(path)) {
        m_powerLoss.directorySynced(path);
    }
    return 0;
}

int FaultPlatform::removeTree(const std::string& command, const std::string& path) {
    return refuses(path, "remove tree") ? -1 : ForwardingPlatform::removeTree(command, path);
}

int FaultPlatform::move(const std::string& command, const std::string& from,
                        const std::string& to) {
    if (refuses(from, "move")) {
        return -1;
    }
    if (tracks(from)) {
        m_powerLoss.renaming(from, to);
    }
    return ForwardingPlatform::move(command, from, to);
}

} // namespace kestrine::test
