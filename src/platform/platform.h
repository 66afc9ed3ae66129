// Everything that Kestrine asks of an operating system, as one interface.
//
// The service reaches files, directories, the clock and the process environment through
// `platform()` alone, so that one file per system holds all that differs between systems, and tests
// can put their own clock, disk and free space underneath.
//
// Paths are narrow 8-bit strings with '/' between components.
//
// Errors: an operation that fails returns -1 (or null), leaves the C error number in `errno`, and
// the system's own error code in `lastError()`. Not-found results use the codes 2 (no such entry)
// and 3 (no such directory on the way) on every system.
#pragma once

#include "platform/child_process.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine {

constexpr uint32_t g_errorFileNotFound = 2;
constexpr uint32_t g_errorPathNotFound = 3;

// Attribute bit of a directory in `FindEntry::attributes`.
constexpr uint32_t g_attributeDirectory = 0x10;
// Attribute bit of a link. The other bits are those of what it points to, so whoever deletes must
// not walk into a directory that has this one; `removeFile` (Windows, link to a directory:
// `removeDirectory`) removes the link itself.
constexpr uint32_t g_attributeLink = 0x400;

// Longest path that the service builds or accepts, in characters.
constexpr size_t g_maxPath = 259;

enum class OpenMode {
    Read,         // existing file, reading only ("rb")
    ReadExisting, // existing file that must also be writable, never written here ("rb+")
    Truncate,     // new or emptied file, reading and writing ("wb+")
    Append,       // new or existing file, every write goes to the end ("a+"); never waited for
};

// An open file with a position of its own. Unbuffered: a call is a system call, so callers move
// whole blocks. Other processes may read, rename or delete the file while it is open.
class File {
public:
    virtual ~File() = default; // closes, if `close` was not called

    // Bytes read, fewer than asked for only at the end of the file; -1 on failure.
    [[nodiscard]] virtual int64_t read(std::span<uint8_t> buffer) = 0;
    // Bytes written; fewer than given (with errno set) when the system stopped half-way; -1 on
    // failure before the first byte.
    [[nodiscard]] virtual int64_t write(std::span<const uint8_t> data) = 0;
    [[nodiscard]] virtual int seek(int64_t offset) = 0; // from the start of the file
    [[nodiscard]] virtual int64_t tell() = 0;
    [[nodiscard]] virtual int64_t size() = 0;
    // Returns when the content of the file is on stable storage.
    [[nodiscard]] virtual int sync() = 0;
    // Closes; the object is of no further use. A second call returns 0.
    [[nodiscard]] virtual int close() = 0;
};

struct FileInfo {
    bool isDirectory = false;
    // Neither a file nor a directory: a pipe, a socket, a device, or a link that leads to nothing.
    bool isOther = false;
    int64_t size = 0;
    int64_t modified = 0; // seconds since 1970
};

struct FindEntry {
    std::string name;
    uint32_t attributes = 0;
};

// At which step a listing failed.
enum class FindStep { First, Next, Close };

struct LocalTime {
    int year = 0;
    int month = 0; // 1 to 12
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// A name, machine-wide or of a lock file, that is held while the process lives.
class NamedEvent {
public:
    virtual ~NamedEvent() = default;
    [[nodiscard]] virtual int close() = 0;
};

enum class NamedEventResult {
    Created,
    AlreadyExists, // the handle is handed out all the same
    InitializeDescriptorFailed,
    SetDaclFailed,
    CreateFailed,
};

enum class LockResult {
    Locked,
    HeldByAnother,
    NotSupported, // the file system has no locks
    Failed,
};

// What the program that has started the service and watches it is told: systemd on Linux, the
// service manager on Windows; as a rule there is none.
enum class Notice {
    Status,   // a line on what the service is doing; all else is as it was
    Ready,    // the start has succeeded
    Alive,    // it is at work
    Stopping, // it has begun to stop
};

// How often, and after how many milliseconds, a lock of a whole file that is held is asked for
// again.
constexpr int g_lockTries = 20;
constexpr uint32_t g_lockPause = 10;

class Platform {
public:
    virtual ~Platform() = default;

    // The system's error code of the last operation that failed.
    [[nodiscard]] virtual uint32_t lastError() const = 0;

    // ---- files and directories
    [[nodiscard]] virtual std::unique_ptr<File> open(const std::string& path, OpenMode mode) = 0;
    // False when the system says that there is nothing of this name. When it cannot tell (an I/O
    // error, a directory without access), true: the operation that follows then fails, where "not
    // there" would be taken for a fact.
    [[nodiscard]] virtual bool exists(const std::string& path) = 0;
    [[nodiscard]] virtual int info(const std::string& path, FileInfo& info) = 0;
    [[nodiscard]] virtual int removeFile(const std::string& path) = 0;
    // Renames a file, replacing an existing target file, or a directory, whose target must not
    // exist. On Windows it returns when the rename is on disk; elsewhere `syncDirectory` sees to
    // that. A kill leaves either the old or the new name, never both or none.
    [[nodiscard]] virtual int rename(const std::string& from, const std::string& to) = 0;
    [[nodiscard]] virtual int makeDirectory(const std::string& path) = 0;
    [[nodiscard]] virtual int removeDirectory(const std::string& path) = 0; // must be empty
    // Returns when creations, renames and removals in the directory are on stable storage.
    [[nodiscard]] virtual int syncDirectory(const std::string& path) = 0;
    // Fills `entries` with what matches the pattern ("dir/*.txt"; only the last component holds
    // wildcards), without "." and "..", in the file system's order. On failure `step` tells where;
    // `lastError` is 2 when nothing matched and 3 when the directory is not there.
    [[nodiscard]] virtual int find(const std::string& pattern, std::vector<FindEntry>& entries,
                                   FindStep& step) = 0;
    // Bytes free to the caller on the volume that holds `path`.
    [[nodiscard]] virtual int freeSpace(const std::string& path, uint64_t& bytes) = 0;
    // The absolute form of a path, without "." and ".."; links are followed where the system has
    // them in common use. Empty on failure. What the path names need not be there.
    [[nodiscard]] virtual std::string resolvedPath(const std::string& path) = 0;
    // Whether a resolved path is where a volume begins: "/" or a mount point, a drive or a share.
    [[nodiscard]] virtual bool isVolumeRoot(const std::string& path) = 0;
    // An order of names in which those that would name the same file in one directory are equal:
    // negative, 0 or positive.
    [[nodiscard]] virtual int compareFileNames(const std::string& a,
                                               const std::string& b) const = 0;
    [[nodiscard]] bool sameFileName(const std::string& a, const std::string& b) const {
        return compareFileNames(a, b) == 0;
    }
    // Whether a path or name means to every part of the system what it says. On Windows not so: a
    // drive without a slash behind it ("D:x" depends on a working directory) and '%' and '"', which
    // the command interpreter reads.
    [[nodiscard]] virtual bool isPlainPath(const std::string& path) const = 0;

    // ---- commands. Windows runs `command` through the command interpreter, other systems carry
    // out the same thing by system calls. 0, or the command's result.
    // "rmdir /S /Q": removes a directory with all it holds; one that is not there is a success.
    [[nodiscard]] virtual int removeTree(const std::string& command, const std::string& path) = 0;
    // "move".
    [[nodiscard]] virtual int move(const std::string& command, const std::string& from,
                                   const std::string& to) = 0;

    // ---- time
    [[nodiscard]] virtual int64_t now() = 0; // seconds since 1970
    [[nodiscard]] virtual LocalTime localTime() = 0;
    [[nodiscard]] virtual uint32_t tickCount() = 0; // milliseconds since boot, wraps at 2^32
    // When the machine was started, by today's clock: seconds since 1970; INT64_MAX if unknown.
    [[nodiscard]] virtual int64_t bootTime() = 0;
    virtual void sleep(uint32_t milliseconds) = 0;

    // ---- process
    // Full path of the running executable; empty on failure.
    [[nodiscard]] virtual std::string executablePath() = 0;
    [[nodiscard]] virtual NamedEventResult createNamedEvent(const std::string& name,
                                                            std::unique_ptr<NamedEvent>& event) = 0;
    // Makes the file if it is not there and locks it against every other process, on other machines
    // too where the file system can; the lock dies with the process, the file stays. A lock that is
    // held is asked for again for a moment, in which one that only looks may have it.
    [[nodiscard]] virtual LockResult lockFile(const std::string& path,
                                              std::unique_ptr<NamedEvent>& lock) = 0;
    // The same, together with all others that lock it so: it keeps out, and is kept out by, who has
    // `lockFile`.
    [[nodiscard]] virtual LockResult lockFileShared(const std::string& path,
                                                    std::unique_ptr<NamedEvent>& lock) = 0;
    // Makes the file if it is not there and locks `count` of its bytes, from `first` on, which need
    // not be there, against everybody else who locks one of them, in this process, too. Has nothing
    // to do with the locks of the whole file, and must not be used on the same one. Not asked for
    // again when it is held.
    [[nodiscard]] virtual LockResult lockFileBytes(const std::string& path, uint64_t first,
                                                   uint64_t count,
                                                   std::unique_ptr<NamedEvent>& lock) = 0;
    // Whether another process holds the lock of a file, without making or keeping anything: Locked
    // means that nobody does, or that there is no such file. Needs no right to write to it.
    [[nodiscard]] virtual LockResult probeLock(const std::string& path) = 0;
    // Whether anybody holds it, alone or shared. Needs the right to write to the file.
    [[nodiscard]] virtual LockResult probeSharedLock(const std::string& path) = 0;
    // To be called before anything is printed: a reader of the output that goes away must not end
    // the process.
    virtual void prepareConsole() = 0;
    // Columns of the terminal that the standard output (or error) stream is, which from then on
    // understands the usual escape sequences; 0 when it is none.
    [[nodiscard]] virtual int terminalWidth(bool ofError) = 0;
    // Prints to the standard output, or to the standard error stream. Where the system can tell
    // that nobody reads, the text is dropped after a moment instead of waiting for ever.
    virtual void writeConsole(std::string_view text, bool toError) = 0;
    // Calls `handler` on a thread of its own for each of the given signals. Each signal works once
    // and then, from before the handler is called, has its default action again. A hang-up of the
    // terminal counts as signal 15; on Windows so do console close, log-off, shutdown and
    // `ChildProcess::askToStop`. Called once, before any other thread exists.
    [[nodiscard]] virtual int installSignalHandler(std::span<const int> signals,
                                                   void (*handler)(int)) = 0;
    // Starts another program with these arguments, in the same working directory, with nothing to
    // read. Called on a thread that lives as long as the process.
    [[nodiscard]] virtual int startProgram(const std::string& program,
                                           std::span<const std::string> arguments,
                                           std::unique_ptr<ChildProcess>& child) = 0;
    // Those that this process may run on, at least 1.
    [[nodiscard]] virtual uint32_t processorCount() = 0;

    // ---- supervision, from any thread
    // Within how many milliseconds the supervisor wants to be told `Alive` again; 0 when there is
    // none, or none that wants to.
    [[nodiscard]] virtual uint32_t supervisorPatience() = 0;
    // `status` is one line for people. 0, also when there is nobody to be told; waits a second at
    // most.
    [[nodiscard]] virtual int tellSupervisor(Notice notice, const std::string& status) = 0;
};

// The platform in use: the system's own unless a test has put another one in its place.
Platform& platform();
// The system's own.
Platform& systemPlatform();
// Puts `replacement` in place (null: the system's own) and returns what was there.
Platform* setPlatform(Platform* replacement);

} // namespace kestrine
