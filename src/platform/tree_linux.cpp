// Listing, removing and moving of directory entries.
#include "platform/path_text.h"
#include "platform/system_linux.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace kestrine {

namespace {

constexpr size_t g_copyBlockSize = size_t{256} * 1024; // bytes

struct CloseStream {
    void operator()(DIR* stream) const { ::closedir(stream); }
};
using Stream = std::unique_ptr<DIR, CloseStream>;

// The next entry but "." and ".."; null at the end (errno 0) and on failure.
const dirent* nextEntry(DIR* stream) {
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(stream);
        if (entry == nullptr) {
            return nullptr;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            return entry;
        }
    }
}

// A link counts as what it points to, and is marked.
uint32_t attributesOf(int directory, const dirent& entry) {
    // Saves a call for each entry; some file systems do not tell the type.
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR ? g_attributeDirectory : 0;
    }
    uint32_t attributes = 0;
    struct stat status {};
    if (::fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(status.st_mode)) {
        attributes |= g_attributeLink;
    }
    if (::fstatat(directory, entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode)) {
        attributes |= g_attributeDirectory;
    }
    return attributes;
}

int failFind(FindStep& step, FindStep where, int error) {
    step = where;
    return fail(error);
}

int failNotFound(uint32_t code) {
    fail(static_cast<int>(code));
    errno = ENOENT;
    return -1;
}

} // namespace

int findEntries(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) {
    entries.clear();
    step = FindStep::First;
    const size_t slash = pattern.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : pattern.substr(0, slash + 1);
    const std::string namePattern = pattern.substr(slash + 1); // npos + 1 is 0
    Stream stream(::opendir(directory.c_str()));
    if (!stream) {
        return errno == ENOENT || errno == ENOTDIR ? failNotFound(g_errorPathNotFound) : fail();
    }
    while (const dirent* entry = nextEntry(stream.get())) {
        if (matchesWildcard(entry->d_name, namePattern, false)) {
            entries.push_back({entry->d_name, attributesOf(::dirfd(stream.get()), *entry)});
        }
    }
    // Entries may be missing, which only errno tells.
    if (errno != 0) {
        return failFind(step, FindStep::Next, errno);
    }
    if (::closedir(stream.release()) != 0) {
        return failFind(step, FindStep::Close, errno);
    }
    return entries.empty() ? failNotFound(g_errorFileNotFound) : 0;
}

int renamePath(const std::string& from, const std::string& to) {
    // The system would replace an empty directory.
    struct stat status {};
    if (::lstat(from.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
        ::lstat(to.c_str(), &status) == 0) {
        return fail(EEXIST);
    }
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : fail();
}

namespace {

// Names are collected before anything is removed, since a file system may skip entries of a
// directory that changes while it is read.
int listNames(int directory, std::vector<std::string>& names) {
    Descriptor copy(::fcntl(directory, F_DUPFD_CLOEXEC, 0));
    if (copy.get() < 0) {
        return -1;
    }
    const Stream stream(::fdopendir(copy.get()));
    if (!stream) {
        return -1;
    }
    (void)copy.release();
    while (const dirent* entry = nextEntry(stream.get())) {
        names.emplace_back(entry->d_name);
    }
    return errno == 0 ? 0 : -1;
}

Descriptor openDirectoryAt(int parent, const char* name) {
    return Descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

int removeEntry(int parent, const char* name);

// Goes on after a failure; errno is that of the first.
int emptyDirectory(int directory) {
    std::vector<std::string> names;
    int firstError = listNames(directory, names) == 0 ? 0 : errno;
    for (const std::string& name : names) {
        if (removeEntry(directory, name.c_str()) != 0 && firstError == 0) {
            firstError = errno;
        }
    }
    errno = firstError;
    return firstError == 0 ? 0 : -1;
}

// 0 too when it is a mount point, which stays.
int removeEmptied(int parent, const char* name) {
    return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == EBUSY || errno == ENOENT ? 0
                                                                                            : -1;
}

int removeEntry(int parent, const char* name) {
    // Without asking first what it is: whatever is no directory goes itself, links included.
    if (::unlinkat(parent, name, 0) == 0 || errno == ENOENT) {
        return 0;
    }
    if (errno != EISDIR) {
        return -1;
    }
    const Descriptor directory = openDirectoryAt(parent, name);
    if (directory.get() < 0 || emptyDirectory(directory.get()) != 0) {
        return -1;
    }
    return removeEmptied(parent, name);
}

bool isLink(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

} // namespace

int removeWholeTree(const std::string& path) {
    std::string name = path;
    while (name.size() > 1 && name.back() == '/') {
        name.pop_back(); // a link followed by '/' would be followed
    }
    if (isLink(name)) {
        return ::unlink(name.c_str()) == 0 ? 0 : fail();
    }
    const Descriptor directory = openDirectoryAt(AT_FDCWD, name.c_str());
    if (directory.get() < 0) {
        return errno == ENOENT ? 0 : fail();
    }
    if (emptyDirectory(directory.get()) != 0 || removeEmptied(AT_FDCWD, name.c_str()) != 0) {
        return fail();
    }
    return 0;
}

namespace {

int copyContent(File& source, File& target) {
    std::vector<uint8_t> block(g_copyBlockSize);
    for (;;) {
        const int64_t got = source.read(block);
        if (got <= 0) {
            return static_cast<int>(got);
        }
        if (target.write({block.data(), static_cast<size_t>(got)}) != got) {
            return -1;
        }
    }
}

int copyFile(const std::string& from, const std::string& to) {
    const auto source = openFile(from, OpenMode::Read);
    if (!source) {
        return -1;
    }
    const auto target = openFile(to, OpenMode::Truncate);
    if (!target) {
        return -1;
    }
    // Synced before the original goes: this copy is then all there is.
    if (copyContent(*source, *target) != 0 || target->sync() != 0 || target->close() != 0) {
        const int error = errno;
        // A half copy must not pass for the file; the reason of the failure is kept across this.
        ::unlink(to.c_str());
        return fail(error);
    }
    return 0;
}

} // namespace

int moveFile(const std::string& from, const std::string& to) {
    if (renamePath(from, to) == 0) {
        return 0;
    }
    // The roots may lie on two volumes, or a mount point between.
    if (errno != EXDEV || copyFile(from, to) != 0) {
        return -1;
    }
    return ::unlink(from.c_str()) == 0 ? 0 : fail();
}

} // namespace kestrine
