// Locks of files. Both kinds are locks of the open file, which the kernel takes back with its last
// descriptor, however the process ends.
#include "platform/system_linux.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace kestrine {

namespace {

class HeldDescriptor final : public NamedEvent {
public:
    explicit HeldDescriptor(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}
    [[nodiscard]] int close() override { return m_descriptor.close(); }

private:
    Descriptor m_descriptor;
};

// Whether the path still names the open file: another process may have removed it, with its lock.
bool isNamedBy(int file, const std::string& path) {
    struct stat open {};
    struct stat named {};
    return ::fstat(file, &open) == 0 && ::stat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

int lockOpenFile(int file, LockKind kind) {
    int result = 0;
    do {
        result = ::flock(file, (kind == LockKind::Alone ? LOCK_EX : LOCK_SH) | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result;
}

// Who only looks at the lock has it for less than a moment.
int lockBetweenLooks(int file, LockKind kind) {
    int tries = g_lockTries;
    int result = lockOpenFile(file, kind);
    for (; result != 0 && errno == EWOULDBLOCK && tries > 0; --tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(g_lockPause));
        result = lockOpenFile(file, kind);
    }
    return result;
}

LockResult lockFailure() {
    if (errno == EWOULDBLOCK || errno == EACCES) {
        return LockResult::HeldByAnother;
    }
    return errno == ENOLCK || errno == ENOTSUP || errno == EINVAL ? LockResult::NotSupported
                                                                  : LockResult::Failed;
}

// `take` locks the open file: 0, or -1 with errno.
template <typename Take>
LockResult lockNamedFile(const std::string& path, Take take, std::unique_ptr<NamedEvent>& lock) {
    constexpr int tries = 10; // then the file system has no lasting identities
    for (int i = 1;; ++i) {
        Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
        if (file.get() < 0) {
            fail();
            return LockResult::Failed;
        }
        if (take(file.get()) != 0) {
            fail();
            return lockFailure();
        }
        if (i == tries || isNamedBy(file.get(), path)) {
            lock = holdDescriptor(std::move(file));
            return LockResult::Locked;
        }
    }
}

} // namespace

std::unique_ptr<NamedEvent> holdDescriptor(Descriptor descriptor) {
    return std::make_unique<HeldDescriptor>(std::move(descriptor));
}

LockResult lockWholeFile(const std::string& path, LockKind kind,
                         std::unique_ptr<NamedEvent>& lock) {
    return lockNamedFile(
        path, [kind](int file) { return lockBetweenLooks(file, kind); }, lock);
}

// Not the locks that belong to the process: those go with the first descriptor of the file that any
// part of it closes.
LockResult lockBytesOfFile(const std::string& path, uint64_t first, uint64_t count,
                           std::unique_ptr<NamedEvent>& lock) {
    const auto take = [first, count](int file) {
        struct flock bytes {};
        bytes.l_type = F_WRLCK;
        bytes.l_whence = SEEK_SET;
        bytes.l_start = static_cast<off_t>(first);
        bytes.l_len = static_cast<off_t>(count);
        return ::fcntl(file, F_OFD_SETLK, &bytes);
    };
    return lockNamedFile(path, take, lock);
}

// The kernel lists such locks, but not those of other containers and machines, and not under the
// numbers that every file system shows. So the lock is taken and let go with the descriptor;
// `lockBetweenLooks` sees to it that nobody who wants to keep it minds. Shared, no other look minds
// either.
LockResult probeFileLock(const std::string& path, LockKind kind) {
    const int mode = kind == LockKind::Alone ? O_RDWR : O_RDONLY;
    const Descriptor file(::open(path.c_str(), mode | O_CLOEXEC));
    if (file.get() < 0) {
        fail();
        return errno == ENOENT ? LockResult::Locked : LockResult::Failed;
    }
    const bool free = kind == LockKind::Alone ? lockBetweenLooks(file.get(), kind) == 0
                                              : lockOpenFile(file.get(), kind) == 0;
    if (!free) {
        fail();
        return lockFailure();
    }
    return LockResult::Locked;
}

} // namespace kestrine
