#include "tree/listing.h"

#include "frame/progress.h"
#include "frame/retry.h"
#include "tree/names.h"

#include <algorithm>
#include <utility>

namespace kestrine::Util {

int listEntries(const std::string& pattern, std::vector<FindEntry>& entries,
                const CodePlace& where) {
    FindStep step{};
    uint32_t error = 0;
    const auto find = [&] {
        entries.clear();
        if (platform().find(pattern, entries, step) == 0) {
            return 0;
        }
        error = platform().lastError();
        // At the first step only: later these codes say that entries are missing from the listing.
        const bool nothing = error == g_errorFileNotFound || error == g_errorPathNotFound;
        return step == FindStep::First && nothing ? 0 : -1;
    };
    if (triedAgain(find) == 0) {
        return 0;
    }
    // Every entry is there by then; what is lost is a handle.
    if (step == FindStep::Close) {
        logMessage(LogLevel::Error, where, "FindClose fail, errcode %d", error);
        return 0;
    }
    // Nothing may be concluded from a part: what it lacks would count as not there.
    entries.clear();
    if (step == FindStep::Next) {
        logMessage(LogLevel::Error, where, "FindNextFile fail, errcode %d", error);
        return -1;
    }
    logMessage(LogLevel::Error, where, "FindFirstFile for %s fail, errcode %d", pattern.c_str(),
               error);
    return -1;
}

int tranverse(const std::string& directory, const Visitor& visitor) {
    std::vector<FindEntry> entries;
    if (listEntries(names::join(directory, "*"), entries, KESTRINE_HERE) != 0) {
        return -1;
    }
    for (const FindEntry& entry : entries) {
        noteProgress(); // what walks and deletes looks at no run flag
        if (!entry.name.starts_with('.') &&
            visitor(names::join(directory, entry.name), entry.attributes) != 0) {
            return -1;
        }
    }
    return 0;
}

int getDateInNewDirectory(const std::string& accountDir, std::vector<std::string>& dates) {
    const std::string tree = names::newTree(accountDir);
    std::vector<FindEntry> entries;
    if (listEntries(names::join(tree, "*"), entries, KESTRINE_HERE) != 0) {
        return -1;
    }
    std::vector<std::string> found;
    for (const FindEntry& entry : entries) {
        if (isDirectory(entry) && names::isDateDirName(entry.name)) {
            found.push_back(names::newDayDir(accountDir, entry.name));
        }
    }
    // Below one directory the order of paths is that of dates.
    std::sort(found.begin(), found.end());
    dates.insert(dates.end(), found.begin(), found.end());
    return 0;
}

int getDaycrcsortNews(const std::string& directory, std::vector<std::string>& files) {
    std::vector<FindEntry> entries;
    if (listEntries(names::join(directory, "*daycrcsortnew"), entries, KESTRINE_HERE) != 0) {
        return -1;
    }
    std::vector<std::pair<int32_t, std::string>> found;
    for (const FindEntry& entry : entries) {
        // The pattern takes more than our names: this decides.
        const int32_t number = names::newDayNumber(entry.name);
        if (!isDirectory(entry) && number >= 0) {
            // By number, not by name, in which 10 would come before 9.
            found.emplace_back(number, names::join(directory, entry.name));
        }
    }
    std::sort(found.begin(), found.end());
    for (auto& [number, path] : found) {
        files.push_back(std::move(path));
    }
    return 0;
}

} // namespace kestrine::Util
