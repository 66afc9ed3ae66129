#include "platform/system_windows.h"

#include <algorithm>
#include <utility>

namespace kestrine {

namespace {

constexpr size_t g_longestTransfer = 1 << 30; // bytes in one call

class WindowsFile final : public File {
public:
    explicit WindowsFile(HANDLE handle) : m_handle(handle) {}
    ~WindowsFile() override {
        if (m_handle != INVALID_HANDLE_VALUE) {
            CloseHandle(m_handle);
        }
    }
    WindowsFile(const WindowsFile&) = delete;
    WindowsFile& operator=(const WindowsFile&) = delete;

    [[nodiscard]] int64_t read(std::span<uint8_t> buffer) override {
        size_t done = 0;
        while (done < buffer.size()) {
            const auto part = static_cast<DWORD>(std::min(buffer.size() - done, g_longestTransfer));
            DWORD got = 0;
            if (!ReadFile(m_handle, buffer.data() + done, part, &got, nullptr)) {
                return fail();
            }
            if (got == 0) {
                break;
            }
            done += got;
        }
        return static_cast<int64_t>(done);
    }

    [[nodiscard]] int64_t write(std::span<const uint8_t> data) override {
        size_t done = 0;
        while (done < data.size()) {
            const auto part = static_cast<DWORD>(std::min(data.size() - done, g_longestTransfer));
            DWORD put = 0;
            const bool written = WriteFile(m_handle, data.data() + done, part, &put, nullptr);
            // Counted also when the call failed: a part may have been written before.
            done += put;
            if (!written || put == 0) {
                fail(written ? ERROR_DISK_FULL : GetLastError());
                return done > 0 ? static_cast<int64_t>(done) : -1;
            }
        }
        return static_cast<int64_t>(done);
    }

    [[nodiscard]] int seek(int64_t offset) override {
        LARGE_INTEGER distance;
        distance.QuadPart = offset;
        return SetFilePointerEx(m_handle, distance, nullptr, FILE_BEGIN) ? 0 : fail();
    }

    [[nodiscard]] int64_t tell() override {
        LARGE_INTEGER position;
        return SetFilePointerEx(m_handle, LARGE_INTEGER{}, &position, FILE_CURRENT)
                   ? position.QuadPart
                   : fail();
    }

    [[nodiscard]] int64_t size() override {
        LARGE_INTEGER bytes;
        return GetFileSizeEx(m_handle, &bytes) ? bytes.QuadPart : fail();
    }

    [[nodiscard]] int sync() override { return FlushFileBuffers(m_handle) ? 0 : fail(); }

    [[nodiscard]] int close() override {
        if (m_handle == INVALID_HANDLE_VALUE) {
            return 0;
        }
        return CloseHandle(std::exchange(m_handle, INVALID_HANDLE_VALUE)) ? 0 : fail();
    }

private:
    HANDLE m_handle;
};

struct Opening {
    DWORD access;
    DWORD disposition;
};

Opening openingOf(OpenMode mode) {
    switch (mode) {
    case OpenMode::Read:
        return {GENERIC_READ, OPEN_EXISTING};
    case OpenMode::ReadExisting:
        return {GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING};
    case OpenMode::Truncate:
        return {GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS};
    case OpenMode::Append:
        // The right to append without the right to write sends every write to the end.
        return {GENERIC_READ | FILE_APPEND_DATA, OPEN_ALWAYS};
    }
    return {GENERIC_READ, OPEN_EXISTING};
}

} // namespace

std::unique_ptr<File> openFile(const std::string& path, OpenMode mode) {
    const Opening opening = openingOf(mode);
    HANDLE handle = INVALID_HANDLE_VALUE;
    const auto attempt = [&] {
        // Shared in every way: the log writer and whoever looks at the files go on working.
        handle = CreateFileA(path.c_str(), opening.access,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             opening.disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
        return handle != INVALID_HANDLE_VALUE;
    };
    const bool isOpen = mode == OpenMode::Append
                            ? attempt() // the log's; a line is not worth waiting for
                            : tryWhileHeld(attempt, [&] { return !isBeingDeleted(path); });
    if (!isOpen) {
        fail();
        return nullptr;
    }
    return std::make_unique<WindowsFile>(handle);
}

} // namespace kestrine
