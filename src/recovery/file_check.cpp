#include "recovery/file_check.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "storage/verify.h"
#include "topn/top_url_record.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <set>
#include <vector>

namespace kestrine {

namespace {

constexpr int64_t g_recent =
    int64_t{35} * 86400; // seconds; a month, and some days until it is complete

constexpr int64_t g_clockDoubt = 3600;      // seconds by which a clock may have been set back
constexpr int64_t g_rested = 600;           // seconds; younger times are too close to compare
constexpr int64_t g_longestSetWriting = 60; // seconds from the last list to the end of its set

// Whether everything about a formal file and its lists says that they were written whole since the
// machine was started, and then left alone: each was written after the one before, long enough
// after the start, and nothing was changed in place or removed since. A kill tears nothing; only
// what a power failure may have torn must be read through. In doubt, no.
bool isSurelyWhole(const std::string& path, const FileInfo& file) {
    const int64_t now = platform().now();
    const int64_t boot = platform().bootTime();
    const std::string lists = names::topDir(names::parentOf(path));
    FileInfo set;
    if (boot > now || file.modified < boot + g_clockDoubt || now - file.modified < g_rested ||
        !platform().exists(names::topAllFile(lists)) || platform().info(lists, set) != 0) {
        return false;
    }
    int64_t newest = file.modified;
    const bool ordered = Util::tranverse(lists, [&](const std::string& list, uint32_t) {
                             FileInfo info;
                             if (platform().info(list, info) != 0) {
                                 return 1;
                             }
                             newest = std::max(newest, info.modified);
                             return info.modified < file.modified ? 1 : 0;
                         }) == 0;
    return ordered && newest <= set.modified && set.modified - newest <= g_longestSetWriting;
}

// Whether a file must be read through: it is recent, and may be torn.
int mayBeTorn(const std::string& path, bool& torn) {
    FileInfo info;
    if (platform().info(path, info) != 0) {
        return LOG_FAIL("_stati64 fail %s errno %d", path.c_str(), errno);
    }
    torn = platform().now() - info.modified < g_recent && !isSurelyWhole(path, info);
    return 0;
}

// The lists of a directory, compared with the file that they should be of.
struct Lists {
    int64_t oldest = INT64_MAX; // time of the formal file; a list that is older is of another
    bool stale = false;
    bool cut = false; // one holds as many records as a list can
    bool haveAll = false;
    uint64_t all = 0;
    uint64_t types = 0;
    std::set<std::string> names;

    // Lists that are not cut hold every visit; otherwise the lists of the types hold no fewer than
    // "all.top", which can take from all of them.
    [[nodiscard]] bool fit(const FileSums& sums) const {
        const bool complete = std::ranges::all_of(sums.types, [this](uint32_t type) {
            return names.contains(std::string(names::lastComponent(names::topFile("", type))));
        });
        return haveAll && !stale && complete &&
               (cut ? all <= types && types <= sums.total
                    : all == sums.total && types == sums.total);
    }
};

bool isNoFile(const FileInfo& info) {
    return info.isDirectory || info.isOther;
}

int addList(const std::string& path, Lists& lists) {
    FileInfo info;
    if (platform().info(path, info) != 0) {
        return LOG_FAIL("_stati64 fail %s errno %d", path.c_str(), errno);
    }
    FileSums sums;
    const int ret =
        isNoFile(info) ? 1 : verifyTwice(path, g_dayStatusType, RecordOrder::Count, &sums);
    // After a stop nothing is concluded from lists that were not read.
    if (ret < 0 || ret == 2) {
        return ret < 0 ? -1 : 0;
    }
    if (ret == 1) {
        lists.stale = true;
        // Moved, not deleted, although the set is made again: what has damaged it may be worth
        // knowing.
        return Util::dumpBrokenFile(path);
    }
    lists.stale = lists.stale || info.modified < lists.oldest;
    lists.cut = lists.cut || sums.records >= TopUrlRecord::g_listLength;
    const bool all = names::topAllFile(names::parentOf(path)) == path;
    lists.haveAll = lists.haveAll || all;
    (all ? lists.all : lists.types) += sums.total;
    lists.names.emplace(names::lastComponent(path));
    return 0;
}

// Adds the lists of the directory that are wanted. 0 or -1.
int addLists(const std::string& directory, Lists& lists,
             const std::function<bool(const std::string&)>& wanted) {
    if (Util::tranverse(directory, [&](const std::string& path, uint32_t) {
            return names::isTopFile(path) && wanted(path) ? addList(path, lists) : 0;
        }) != 0) {
        return LOG_FAIL("tranverse %s fail", directory.c_str());
    }
    return 0;
}

// Lists are not synced, so those that were made anew for an old file may be torn. As checkTopLists.
int checkTornLists(const std::string& directory) {
    const int64_t now = platform().now();
    const int64_t boot = platform().bootTime();
    Lists lists;
    lists.oldest = 0; // of the file nothing is known here
    const auto mayBeTorn = [&](const std::string& path) {
        FileInfo info;
        return platform().info(path, info) == 0 &&
               (isNoFile(info) || (now - info.modified < g_recent &&
                                   (boot > now || info.modified < boot + g_clockDoubt)));
    };
    return addLists(directory, lists, mayBeTorn) == 0 ? (lists.stale ? 1 : 0) : -1;
}

} // namespace

int checkFile(const std::string& path, uint32_t statusType, Reading reading, FileSums* sums) {
    bool read = reading == Reading::Always;
    if (!read && mayBeTorn(path, read) != 0) {
        return -1;
    }
    // A stop must not wait for files to be read; the next start begins the check anew.
    if (!read || stopRequested()) {
        return 2;
    }
    return verifyTwice(path, statusType, RecordOrder::Key, sums);
}

int checkTopLists(const std::string& directory, const std::string& formal, const FileSums* sums) {
    const std::string listDirectory = names::topDir(directory);
    // After a stop nothing is begun: lists that are missing are made at the next start.
    if (stopRequested() || !platform().exists(names::topAllFile(listDirectory))) {
        return stopRequested() ? 0 : 1;
    }
    if (sums == nullptr) {
        return checkTornLists(listDirectory);
    }
    FileInfo info;
    if (platform().info(formal, info) != 0) {
        return LOG_FAIL("_stati64 fail %s errno %d", formal.c_str(), errno);
    }
    Lists lists;
    lists.oldest = info.modified;
    if (addLists(listDirectory, lists, [](const std::string&) { return true; }) != 0) {
        return -1;
    }
    return stopRequested() || lists.fit(*sums) ? 0 : 1;
}

} // namespace kestrine
