#include "platform/path_text.h"
#include "platform/system_linux.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <thread>

namespace kestrine {

namespace {

thread_local uint32_t g_lastError = 0;

int syncDescriptor(int descriptor) {
    int result = 0;
    do {
        result = ::fsync(descriptor);
    } while (result != 0 && errno == EINTR);
    // A file system that cannot sync a directory says EINVAL; nothing more can be had of it.
    return result == 0 || errno == EINVAL ? 0 : fail();
}

class LinuxPlatform final : public Platform {
public:
    [[nodiscard]] uint32_t lastError() const override { return g_lastError; }

    [[nodiscard]] std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        return openFile(path, mode);
    }

    [[nodiscard]] bool exists(const std::string& path) override {
        struct stat status {};
        // Only these three say that it is not there; after any other error it counts as there.
        return ::stat(path.c_str(), &status) == 0 ||
               (errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG);
    }

    [[nodiscard]] int info(const std::string& path, FileInfo& info) override {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) {
            const int error = errno;
            // A link to nothing stands in the way of a file, so it must not pass for a free name.
            const bool deadLink = (error == ENOENT || error == ELOOP) &&
                                  ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
            if (!deadLink) {
                return fail(error);
            }
        }
        info.isDirectory = S_ISDIR(status.st_mode);
        info.isOther = !info.isDirectory && !S_ISREG(status.st_mode);
        info.size = S_ISREG(status.st_mode) ? status.st_size : 0;
        info.modified = status.st_mtime;
        return 0;
    }

    [[nodiscard]] int removeFile(const std::string& path) override {
        return ::unlink(path.c_str()) == 0 ? 0 : fail();
    }

    [[nodiscard]] int rename(const std::string& from, const std::string& to) override {
        return renamePath(from, to);
    }

    [[nodiscard]] int makeDirectory(const std::string& path) override {
        return ::mkdir(path.c_str(), 0777) == 0 ? 0 : fail();
    }

    [[nodiscard]] int removeDirectory(const std::string& path) override {
        return ::rmdir(path.c_str()) == 0 ? 0 : fail();
    }

    [[nodiscard]] int syncDirectory(const std::string& path) override {
        Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (directory.get() < 0) {
            return fail();
        }
        return syncDescriptor(directory.get()) == 0 ? directory.close() : -1;
    }

    [[nodiscard]] int find(const std::string& pattern, std::vector<FindEntry>& entries,
                           FindStep& step) override {
        return findEntries(pattern, entries, step);
    }

    [[nodiscard]] int freeSpace(const std::string& path, uint64_t& bytes) override {
        std::string place = path.empty() ? "." : path;
        struct statvfs volume {};
        while (::statvfs(place.c_str(), &volume) != 0) {
            // What is not made yet will lie on the volume of the first directory above it that is
            // there.
            const bool notThere = errno == ENOENT || errno == ENOTDIR;
            if (errno != EINTR && !(notThere && cutToParent(place))) {
                return fail();
            }
        }
        bytes = uint64_t{volume.f_bavail} * volume.f_frsize;
        return 0;
    }

    [[nodiscard]] std::string resolvedPath(const std::string& path) override {
        std::error_code error;
        const std::filesystem::path absolute = std::filesystem::absolute(path, error);
        const std::filesystem::path resolved =
            error ? absolute : std::filesystem::weakly_canonical(absolute, error);
        return error ? std::string() : resolved.generic_string();
    }

    [[nodiscard]] bool isVolumeRoot(const std::string& path) override {
        struct stat itself {};
        struct stat parent {};
        if (::stat(path.c_str(), &itself) != 0 || ::stat((path + "/..").c_str(), &parent) != 0) {
            return false;
        }
        // Of "/" the directory above is itself.
        return itself.st_dev != parent.st_dev || itself.st_ino == parent.st_ino;
    }

    [[nodiscard]] int compareFileNames(const std::string& a, const std::string& b) const override {
        return a.compare(b);
    }

    [[nodiscard]] bool isPlainPath(const std::string&) const override { return true; }

    [[nodiscard]] int removeTree(const std::string&, const std::string& path) override {
        return removeWholeTree(path);
    }

    [[nodiscard]] int move(const std::string&, const std::string& from,
                           const std::string& to) override {
        return moveFile(from, to);
    }

    [[nodiscard]] int64_t now() override { return std::time(nullptr); }

    [[nodiscard]] LocalTime localTime() override {
        const std::time_t seconds = std::time(nullptr);
        std::tm local{};
        ::localtime_r(&seconds, &local);
        return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                local.tm_hour,        local.tm_min,     local.tm_sec};
    }

    [[nodiscard]] uint32_t tickCount() override {
        timespec time{};
        // Goes on while the machine sleeps, and no change of the time of day moves it.
        ::clock_gettime(CLOCK_BOOTTIME, &time);
        return static_cast<uint32_t>(int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000);
    }

    [[nodiscard]] int64_t bootTime() override {
        timespec time{};
        return ::clock_gettime(CLOCK_BOOTTIME, &time) == 0 ? now() - time.tv_sec : INT64_MAX;
    }

    void sleep(uint32_t milliseconds) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }

    [[nodiscard]] std::string executablePath() override {
        std::array<char, 4096> text{};
        const auto length = ::readlink("/proc/self/exe", text.data(), text.size());
        if (length < 0) {
            fail();
            return {};
        }
        return {text.data(), static_cast<size_t>(length)};
    }

    [[nodiscard]] NamedEventResult createNamedEvent(const std::string& name,
                                                    std::unique_ptr<NamedEvent>& event) override {
        return bindName(name, event);
    }

    [[nodiscard]] LockResult lockFile(const std::string& path,
                                      std::unique_ptr<NamedEvent>& lock) override {
        return lockWholeFile(path, LockKind::Alone, lock);
    }

    [[nodiscard]] LockResult lockFileShared(const std::string& path,
                                            std::unique_ptr<NamedEvent>& lock) override {
        return lockWholeFile(path, LockKind::Shared, lock);
    }

    [[nodiscard]] LockResult lockFileBytes(const std::string& path, uint64_t first, uint64_t count,
                                           std::unique_ptr<NamedEvent>& lock) override {
        return lockBytesOfFile(path, first, count, lock);
    }

    [[nodiscard]] LockResult probeLock(const std::string& path) override {
        return probeFileLock(path, LockKind::Shared);
    }

    [[nodiscard]] LockResult probeSharedLock(const std::string& path) override {
        return probeFileLock(path, LockKind::Alone);
    }

    void prepareConsole() override { ignoreBrokenPipes(); }

    [[nodiscard]] int terminalWidth(bool ofError) override { return widthOfTerminal(ofError); }

    void writeConsole(std::string_view text, bool toError) override {
        writeStandardStream(text, toError);
    }

    [[nodiscard]] int installSignalHandler(std::span<const int> signals,
                                           void (*handler)(int)) override {
        return startSignalThread(signals, handler);
    }

    [[nodiscard]] int startProgram(const std::string& program,
                                   std::span<const std::string> arguments,
                                   std::unique_ptr<ChildProcess>& child) override {
        return startChild(program, arguments, child);
    }

    [[nodiscard]] uint32_t processorCount() override { return countProcessors(); }
    [[nodiscard]] uint32_t supervisorPatience() override { return patienceOfSupervisor(); }

    [[nodiscard]] int tellSupervisor(Notice notice, const std::string& status) override {
        return notifySupervisor(notice, status);
    }
};

} // namespace

int fail() {
    return fail(errno);
}

int fail(int error) {
    errno = error;
    g_lastError = static_cast<uint32_t>(error);
    return -1;
}

Platform& systemPlatform() {
    // Never destroyed: the signal thread may log while the process's statics go.
    static Platform* const instance = std::make_unique<LinuxPlatform>().release();
    return *instance;
}

} // namespace kestrine
