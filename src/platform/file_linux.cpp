#include "platform/system_linux.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace kestrine {

int Descriptor::close() {
    if (m_number < 0) {
        return 0;
    }
    // The descriptor is gone even when the call reports an interruption.
    return ::close(release()) == 0 || errno == EINTR ? 0 : fail();
}

namespace {

class LinuxFile final : public File {
public:
    explicit LinuxFile(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}

    [[nodiscard]] int64_t read(std::span<uint8_t> buffer) override {
        size_t done = 0;
        while (done < buffer.size()) {
            const auto got = ::read(m_descriptor.get(), buffer.data() + done, buffer.size() - done);
            if (got == 0) {
                break;
            }
            if (got > 0) {
                done += static_cast<size_t>(got);
            } else if (errno != EINTR) {
                return fail();
            }
        }
        return static_cast<int64_t>(done);
    }

    [[nodiscard]] int64_t write(std::span<const uint8_t> data) override {
        size_t done = 0;
        while (done < data.size()) {
            const auto put = ::write(m_descriptor.get(), data.data() + done, data.size() - done);
            if (put > 0) {
                done += static_cast<size_t>(put);
            } else if (put == 0 || errno != EINTR) {
                // Set also when a part was written: callers tell a full disk by errno. A write that
                // takes nothing and names no error counts as one.
                fail(put == 0 ? ENOSPC : errno);
                return done > 0 ? static_cast<int64_t>(done) : -1;
            }
        }
        return static_cast<int64_t>(done);
    }

    [[nodiscard]] int seek(int64_t offset) override {
        return ::lseek(m_descriptor.get(), offset, SEEK_SET) >= 0 ? 0 : fail();
    }

    [[nodiscard]] int64_t tell() override {
        const off_t position = ::lseek(m_descriptor.get(), 0, SEEK_CUR);
        return position >= 0 ? position : fail();
    }

    [[nodiscard]] int64_t size() override {
        struct stat status {};
        return ::fstat(m_descriptor.get(), &status) == 0 ? status.st_size : fail();
    }

    [[nodiscard]] int sync() override {
        int result = 0;
        do {
            // Data and size; the times of a file need not be durable.
            result = ::fdatasync(m_descriptor.get());
        } while (result != 0 && errno == EINTR);
        return result == 0 ? 0 : fail();
    }

    [[nodiscard]] int close() override { return m_descriptor.close(); }

private:
    Descriptor m_descriptor;
};

int openFlags(OpenMode mode) {
    switch (mode) {
    case OpenMode::Read:
        return O_RDONLY;
    case OpenMode::ReadExisting:
        return O_RDWR;
    case OpenMode::Truncate:
        return O_RDWR | O_CREAT | O_TRUNC;
    case OpenMode::Append:
        return O_RDWR | O_CREAT | O_APPEND;
    }
    return O_RDONLY;
}

// 0, or the error that opening what is there must give: a directory is no file, and a pipe that
// somebody left in the tree would hang us.
int unfitKind(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return 0;
    }
    return S_ISDIR(status.st_mode) ? EISDIR : S_ISFIFO(status.st_mode) ? ESPIPE : 0;
}

Descriptor openDescriptor(const std::string& path, OpenMode mode) {
    int number = -1;
    do {
        // Not handed to child processes, which would hold files and locks beyond our end.
        number = ::open(path.c_str(), openFlags(mode) | O_CLOEXEC, 0666);
    } while (number < 0 && errno == EINTR);
    if (number < 0 || number > STDERR_FILENO) {
        return Descriptor(number);
    }
    // Started with a standard stream closed: what is printed must not end up in this file.
    const Descriptor low(number);
    return Descriptor(::fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

} // namespace

std::unique_ptr<File> openFile(const std::string& path, OpenMode mode) {
    if (const int error = unfitKind(path); error != 0) {
        fail(error);
        return nullptr;
    }
    Descriptor descriptor = openDescriptor(path, mode);
    if (descriptor.get() < 0) {
        fail();
        return nullptr;
    }
    return std::make_unique<LinuxFile>(std::move(descriptor));
}

} // namespace kestrine
