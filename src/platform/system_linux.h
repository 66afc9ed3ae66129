// What the files of the Linux implementation share.
#pragma once

#include "platform/platform.h"

#include <unistd.h>

#include <utility>

namespace kestrine {

// Keeps `errno` as this thread's system error code; returns -1.
int fail();
// The same with a code of the caller's.
int fail(int error);

// Closes its descriptor silently when it goes.
class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor() {
        if (m_number >= 0) {
            ::close(m_number);
        }
    }
    Descriptor(Descriptor&& other) noexcept : m_number(other.release()) {}
    Descriptor& operator=(Descriptor&&) = delete;
    [[nodiscard]] int get() const { return m_number; }
    [[nodiscard]] int release() { return std::exchange(m_number, -1); }
    // 0, or -1 with errno; 0 when there is nothing to close.
    [[nodiscard]] int close();

private:
    int m_number;
};

// A name that is held by its socket, or a lock by its file, until the descriptor is closed; -1
// stands for one that is another process's.
[[nodiscard]] std::unique_ptr<NamedEvent> holdDescriptor(Descriptor descriptor);

[[nodiscard]] std::unique_ptr<File> openFile(const std::string& path, OpenMode mode);

[[nodiscard]] int findEntries(const std::string& pattern, std::vector<FindEntry>& entries,
                              FindStep& step);

[[nodiscard]] int renamePath(const std::string& from, const std::string& to);
// Links inside are removed, not followed; so is a link that `path` itself is. A failure does not
// stop the removal of the rest. A mount point is emptied and stays, which counts as a success.
[[nodiscard]] int removeWholeTree(const std::string& path);
// Replaces an existing target file. Between file systems a kill leaves the source and perhaps a
// part of the target.
[[nodiscard]] int moveFile(const std::string& from, const std::string& to);

[[nodiscard]] NamedEventResult bindName(const std::string& name,
                                        std::unique_ptr<NamedEvent>& event);
enum class LockKind { Alone, Shared };
[[nodiscard]] LockResult lockWholeFile(const std::string& path, LockKind kind,
                                       std::unique_ptr<NamedEvent>& lock);
[[nodiscard]] LockResult lockBytesOfFile(const std::string& path, uint64_t first, uint64_t count,
                                         std::unique_ptr<NamedEvent>& lock);
// Whether a lock of the kind would be had.
[[nodiscard]] LockResult probeFileLock(const std::string& path, LockKind kind);
void ignoreBrokenPipes();
[[nodiscard]] int widthOfTerminal(bool ofError);
void writeStandardStream(std::string_view text, bool toError);
[[nodiscard]] int startSignalThread(std::span<const int> signals, void (*handler)(int));
[[nodiscard]] int startChild(const std::string& program, std::span<const std::string> arguments,
                             std::unique_ptr<ChildProcess>& child);
[[nodiscard]] uint32_t countProcessors();
[[nodiscard]] uint32_t patienceOfSupervisor();
[[nodiscard]] int notifySupervisor(Notice notice, const std::string& status);

} // namespace kestrine
