#include "service/directory_guard.h"

#include "frame/install_root.h"
#include "frame/log.h"
#include "frame/text.h"
#include "platform/platform.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <vector>

namespace kestrine {

namespace {

constexpr size_t g_longestAccount = 35; // characters, by the account file's field

bool isLink(const FindEntry& entry) {
    return (entry.attributes & g_attributeLink) != 0;
}

using EntryTest = std::function<bool(const std::string& path, const FindEntry& entry)>;

// Whether the directory can be listed and every entry, none of them a link, passes.
bool allEntries(const std::string& directory, const EntryTest& passes) {
    std::vector<FindEntry> entries;
    return Util::listEntries(names::join(directory, "*"), entries, KESTRINE_HERE) == 0 &&
           std::ranges::all_of(entries, [&](const FindEntry& entry) {
               return !isLink(entry) && passes(names::join(directory, entry.name), entry);
           });
}

bool isDateOfSpills(const std::string& path, const FindEntry& date) {
    Period period = Period::Week;
    return Util::isDirectory(date) && names::parsePeriodDir(date.name, period) &&
           period == Period::Day && allEntries(path, [](const std::string&, const FindEntry& file) {
               return !Util::isDirectory(file) && names::isTempFile(file.name);
           });
}

bool refuse(const char* what, const std::string& path, const char* why) {
    LOG_ERROR("%s %s refused: %s", what, path.c_str(), why);
    return false;
}

} // namespace

bool holdsOnlySpillFiles(const std::string& memoryDisk) {
    // Looked at where it is: the name of a link says nothing about what would be deleted.
    const std::string resolved = platform().resolvedPath(memoryDisk);
    const bool clean = !resolved.empty() && allEntries(resolved, [](const std::string& path,
                                                                    const FindEntry& account) {
        const bool marker = account.name == g_memoryDiskMarker && !Util::isDirectory(account);
        return marker || (Util::isDirectory(account) && allEntries(path, isDateOfSpills));
    });
    return clean || refuse("memory disk", memoryDisk,
                           "it holds what is not the service's own and would be deleted with it");
}

bool mayBeMemoryDisk(const std::string& memoryDisk, const std::string& dataPath,
                     const std::string& urlStatRoot) {
    constexpr const char* what = "memory disk";
    if (!platform().isPlainPath(memoryDisk)) {
        return refuse(what, memoryDisk, "no plain path");
    }
    const std::string path = platform().resolvedPath(memoryDisk);
    const std::string_view name = std::string_view(path).substr(0, path.find_last_not_of('/') + 1);
    // "/", a drive and a server: deleting all in them is never what was meant.
    if (name.empty() || name.ends_with(':') || name.starts_with("//")) {
        return refuse(what, memoryDisk, "it is the root of a volume");
    }
    // They would be deleted with it. The other way round is usual: by default it lies in the log
    // data.
    if (names::liesBelow(platform().resolvedPath(dataPath), path) ||
        names::liesBelow(platform().resolvedPath(urlStatRoot), path)) {
        return refuse(what, memoryDisk, "the log data or the statistics lie in it");
    }
    return holdsOnlySpillFiles(memoryDisk);
}

bool mayBeUrlStatRoot(const std::string& urlStatRoot, const std::string& dataPath) {
    constexpr const char* what = "statistics root";
    if (!platform().isPlainPath(urlStatRoot) || !platform().isPlainPath(dataPath)) {
        return refuse(what, urlStatRoot, "no plain path");
    }
    const std::string root = platform().resolvedPath(urlStatRoot);
    const std::string data = platform().resolvedPath(dataPath);
    std::string executable = platform().executablePath();
    Util::replaceChar(executable, '\\', '/');
    // Sweeping, and an account of an unlucky name, must not reach the program.
    if (root.empty() || names::liesBelow(platform().resolvedPath(executable), root)) {
        return refuse(what, urlStatRoot, "the program lies in it");
    }
    // Nor the settings and the log files.
    if (!install::namedRoot().empty() &&
        names::liesBelow(platform().resolvedPath(install::namedRoot()), root)) {
        return refuse(what, urlStatRoot, "the installation root lies in it");
    }
    // What the service makes there could pass for logs of the device.
    for (std::string_view part = root; names::liesBelow(part, data) && part.size() > data.size();
         part = names::parentOf(part)) {
        if (names::lastComponent(part).starts_with(names::g_devicePrefix)) {
            return refuse(what, urlStatRoot, "it lies in a device's log data");
        }
    }
    return true;
}

std::string memoryDiskMarker(const std::string& memoryDisk) {
    return names::join(memoryDisk, g_memoryDiskMarker);
}

bool leavesRoomForNames(const std::string& memoryDisk, const std::string& urlStatRoot) {
    constexpr int32_t number = std::numeric_limits<int32_t>::max();
    const std::string account = names::accountDir(urlStatRoot, std::string(g_longestAccount, 'x'));
    const std::string week = names::periodDir(account, Period::Week, "20000101", "20000107");
    // The longest name of each kind: found out here, not in a merge months later.
    const std::string longest[] = {
        names::memoryDiskFile(memoryDisk, std::string(g_longestAccount, 'x'), 20000101, number),
        names::tempOf(names::newDayFile(names::newDayDir(account, "20000101"), number)),
        names::tempOf(names::topFile(names::topTempTempDir(week), UINT32_MAX)),
        names::tempOf(
            names::dumpFile(names::dumpDir(urlStatRoot, names::formalFile(week, Period::Week)),
                            number, names::backupOf(names::formalName(Period::Week)))),
        names::tempOf(names::mergeRoundFile(names::diskTempDir(account, names::lastComponent(week)),
                                            number))};
    const bool fit = std::ranges::all_of(
        longest, [](const std::string& path) { return path.size() <= g_maxPath; });
    return fit || refuse("directory", memoryDisk + " or " + urlStatRoot,
                         "too long for the names of the files below it");
}

} // namespace kestrine
