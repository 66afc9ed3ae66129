// Locks of files. The system takes a lock back with the last handle of the file.
#include "platform/system_windows.h"

#include <string>
#include <utility>

namespace kestrine {

namespace {

class OwnedHandle final : public NamedEvent {
public:
    explicit OwnedHandle(HANDLE handle) : m_handle(handle) {}
    ~OwnedHandle() override {
        if (m_handle != nullptr) {
            CloseHandle(m_handle);
        }
    }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    [[nodiscard]] int close() override {
        return m_handle == nullptr || CloseHandle(std::exchange(m_handle, nullptr)) ? 0 : fail();
    }

private:
    HANDLE m_handle;
};

// The lock of the whole file is that of a byte that no file has: far behind the end, so that it
// keeps nobody from reading.
constexpr uint64_t g_placeOfLock = uint64_t{0x7FFFFFFF} << 32;

OVERLAPPED placeOf(uint64_t byte) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(byte);
    place.OffsetHigh = static_cast<DWORD>(byte >> 32);
    return place;
}

LockResult lockOpenFile(HANDLE handle, LockKind kind, uint64_t first = g_placeOfLock,
                        uint64_t count = 1) {
    OVERLAPPED place = placeOf(first);
    const DWORD flags = kind == LockKind::Alone ? LOCKFILE_EXCLUSIVE_LOCK : 0;
    if (LockFileEx(handle, flags | LOCKFILE_FAIL_IMMEDIATELY, 0, static_cast<DWORD>(count),
                   static_cast<DWORD>(count >> 32), &place)) {
        return LockResult::Locked;
    }
    const DWORD code = GetLastError();
    fail(code);
    if (code == ERROR_LOCK_VIOLATION || code == ERROR_IO_PENDING) {
        return LockResult::HeldByAnother;
    }
    return code == ERROR_NOT_SUPPORTED || code == ERROR_INVALID_FUNCTION ? LockResult::NotSupported
                                                                         : LockResult::Failed;
}

// Who only looks at the lock has it for less than a moment.
LockResult lockBetweenLooks(HANDLE handle, LockKind kind) {
    LockResult result = lockOpenFile(handle, kind);
    for (int tries = g_lockTries; result == LockResult::HeldByAnother && tries > 0; --tries) {
        Sleep(g_lockPause);
        result = lockOpenFile(handle, kind);
    }
    return result;
}

HANDLE openLockFile(const std::string& path, DWORD access, DWORD disposition) {
    return CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// `take` locks the open file.
template <typename Take>
LockResult lockNamedFile(const std::string& path, Take take, std::unique_ptr<NamedEvent>& lock) {
    HANDLE handle = INVALID_HANDLE_VALUE;
    const auto open = [&] {
        handle = openLockFile(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
        return handle != INVALID_HANDLE_VALUE;
    };
    if (!tryWhileHeld(open, [&] { return !isBeingDeleted(path); })) {
        fail();
        return LockResult::Failed;
    }
    std::unique_ptr<NamedEvent> file = holdHandle(handle);
    const LockResult result = take(handle);
    if (result == LockResult::Locked) {
        lock = std::move(file);
    }
    return result;
}

} // namespace

std::unique_ptr<NamedEvent> holdHandle(HANDLE handle) {
    return std::make_unique<OwnedHandle>(handle);
}

LockResult lockWholeFile(const std::string& path, LockKind kind,
                         std::unique_ptr<NamedEvent>& lock) {
    return lockNamedFile(
        path, [kind](HANDLE file) { return lockBetweenLooks(file, kind); }, lock);
}

LockResult lockBytesOfFile(const std::string& path, uint64_t first, uint64_t count,
                           std::unique_ptr<NamedEvent>& lock) {
    const auto take = [first, count](HANDLE file) {
        return lockOpenFile(file, LockKind::Alone, first, count);
    };
    return lockNamedFile(path, take, lock);
}

// Nothing lists locks, so it is taken and let go with the handle; `lockBetweenLooks` sees to it
// that nobody who wants to keep it minds. Shared, no other look minds either.
LockResult probeFileLock(const std::string& path, LockKind kind) {
    const DWORD access = kind == LockKind::Alone ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    const HANDLE handle = openLockFile(path, access, OPEN_EXISTING);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD code = GetLastError();
        fail(code);
        return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ? LockResult::Locked
                                                                            : LockResult::Failed;
    }
    const OwnedHandle file(handle);
    const LockResult result =
        kind == LockKind::Alone ? lockBetweenLooks(handle, kind) : lockOpenFile(handle, kind);
    if (result == LockResult::Locked) {
        // With the handle it would go at the system's leisure.
        OVERLAPPED place = placeOf(g_placeOfLock);
        UnlockFileEx(handle, 0, 1, 0, &place);
    }
    return result;
}

} // namespace kestrine
