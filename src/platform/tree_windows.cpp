// Listing, removing and moving of directory entries.
#include "platform/path_text.h"
#include "platform/system_windows.h"

#include <cstdlib>

namespace kestrine {

static_assert(g_attributeDirectory == FILE_ATTRIBUTE_DIRECTORY);
static_assert(g_attributeLink == FILE_ATTRIBUTE_REPARSE_POINT);

namespace {

// Not every reparse point stands for another place: compressed and remote files are some too.
uint32_t attributesOf(const WIN32_FIND_DATAA& data) {
    const bool isLink = hasAttribute(data.dwFileAttributes, FILE_ATTRIBUTE_REPARSE_POINT) &&
                        IsReparseTagNameSurrogate(data.dwReserved0);
    return isLink ? data.dwFileAttributes : data.dwFileAttributes & ~g_attributeLink;
}

// The system matches short 8.3 names too.
bool isWanted(std::string_view name, std::string_view namePattern) {
    return name != "." && name != ".." && matchesWildcard(name, namePattern, true);
}

DWORD firstFindError(DWORD code) {
    switch (code) {
    case ERROR_NO_MORE_FILES:
        return g_errorFileNotFound;
    case ERROR_DIRECTORY:    // a file stands where the directory is looked for,
    case ERROR_INVALID_NAME: // or the directory has a name that none can have
        return g_errorPathNotFound;
    default:
        return code;
    }
}

} // namespace

int findEntries(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) {
    entries.clear();
    step = FindStep::First;
    const std::string namePattern = pattern.substr(pattern.find_last_of("/\\") + 1); // npos + 1: 0
    WIN32_FIND_DATAA data;
    const HANDLE search = FindFirstFileA(pattern.c_str(), &data);
    if (search == INVALID_HANDLE_VALUE) {
        return fail(firstFindError(GetLastError()));
    }
    do {
        if (isWanted(data.cFileName, namePattern)) {
            entries.push_back({data.cFileName, attributesOf(data)});
        }
    } while (FindNextFileA(search, &data));
    // Any other code broke the listing off, and entries are missing.
    if (const DWORD code = GetLastError(); code != ERROR_NO_MORE_FILES) {
        step = FindStep::Next;
        FindClose(search);
        return fail(code);
    }
    if (!FindClose(search)) {
        step = FindStep::Close;
        return fail();
    }
    return entries.empty() ? fail(g_errorFileNotFound) : 0;
}

int deleteFile(const std::string& path) {
    const bool removed = tryWhileHeld([&] { return DeleteFileA(path.c_str()); },
                                      [&] { return refusesChange(path); });
    return removed ? 0 : fail();
}

int renamePath(const std::string& from, const std::string& to) {
    const bool isDirectory =
        hasAttribute(GetFileAttributesA(from.c_str()), FILE_ATTRIBUTE_DIRECTORY);
    // Returns when it is on disk: no later call could see to that.
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (isDirectory ? 0 : MOVEFILE_REPLACE_EXISTING);
    // A directory is denied while a file in it is open, or because its target is there.
    const auto isHopeless = [&] {
        return isDirectory ? GetFileAttributesA(to.c_str()) != INVALID_FILE_ATTRIBUTES
                           : refusesChange(to);
    };
    const bool renamed =
        tryWhileHeld([&] { return MoveFileExA(from.c_str(), to.c_str(), flags); }, isHopeless);
    return renamed ? 0 : fail();
}

namespace {

// The interpreter's own commands take '/' for the start of a switch, unless it is quoted, and even
// there not all of them take it for a separator.
std::string withNativeSeparators(std::string command) {
    bool quoted = false;
    for (char& letter : command) {
        quoted = quoted != (letter == '"');
        letter = quoted && letter == '/' ? '\\' : letter;
    }
    return command;
}

bool exists(const std::string& path) {
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Runs the command until `isDone`; again as if somebody held what it works on, as long as
// `mayRepeat`. 0, or what the last run gave.
template <typename IsDone, typename MayRepeat>
int runUntil(const std::string& command, IsDone isDone, MayRepeat mayRepeat) {
    const std::string native = withNativeSeparators(command);
    int result = 0;
    const bool done = tryWhileHeld(
        [&] {
            result = std::system(native.c_str());
            if (isDone()) {
                return true;
            }
            // An interpreter that does not start is not worth another try.
            SetLastError(result == -1 ? ERROR_NOT_SUPPORTED : ERROR_ACCESS_DENIED);
            return false;
        },
        [&] { return !mayRepeat(); });
    if (done) {
        return 0;
    }
    fail();
    return result != 0 ? result : -1;
}

} // namespace

// The interpreter's results say little ("rmdir" gives 0 for much that it could not remove): what
// counts is what is there afterwards.
int runRemoveTree(const std::string& command, const std::string& path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return 0;
    }
    if (!hasAttribute(attributes, FILE_ATTRIBUTE_DIRECTORY)) {
        return fail(ERROR_DIRECTORY);
    }
    return runUntil(
        command, [&] { return !exists(path); }, [] { return true; });
}

int runMove(const std::string& command, const std::string& from, const std::string& to) {
    if (!exists(from)) {
        return fail(ERROR_FILE_NOT_FOUND);
    }
    // The command would move into a directory, and ask before it replaces a file.
    if (hasAttribute(GetFileAttributesA(to.c_str()), FILE_ATTRIBUTE_DIRECTORY)) {
        return fail(ERROR_ALREADY_EXISTS);
    }
    if (exists(to) && deleteFile(to) != 0) {
        return -1;
    }
    // With the target there, a second run would stop at its question.
    return runUntil(
        command, [&] { return exists(to) && !exists(from); }, [&] { return !exists(to); });
}

} // namespace kestrine
