#include "recovery/file_check.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "storage/verify.h"
#include "topn/top_url_record.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"

#include <cerrno>
#include <vector>

namespace kestrine {

namespace {

constexpr int64_t g_recent = 35 * 86400; // seconds; a month, and some days until it is complete
constexpr std::string_view g_listEnding = ".top";

int isRecent(const std::string& path, bool& recent) {
    FileInfo info;
    if (platform().info(path, info) != 0) {
        return LOG_FAIL("_stati64 fail %s errno %d", path.c_str(), errno);
    }
    recent = platform().now() - info.modified < g_recent;
    return 0;
}

int readTotal(const std::string& path, uint32_t statusType, uint64_t& total) {
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    if (file.readStatus(statusType) != 0) {
        return 1;
    }
    total = file.statusTotal();
    return file.close();
}

// "all.top" and the sums over the lists of the types.
struct Lists {
    bool haveAll = false;
    bool damaged = false;
    bool cut = false; // one holds as many records as a list can
    uint64_t all = 0;
    uint64_t types = 0;

    // Lists that are not cut hold every visit; otherwise the lists of the types hold no fewer than
    // "all.top", which can take from all of them.
    [[nodiscard]] bool fit(uint64_t total) const {
        return haveAll && !damaged &&
               (cut ? all <= types && types <= total : all == total && types == total);
    }
};

int addList(const std::string& path, Lists& lists) {
    FileSums sums;
    const int ret = verifyTwice(path, g_dayStatusType, RecordOrder::Count, &sums);
    if (ret < 0 || ret == 2) {
        return ret < 0 ? -1 : 0;
    }
    if (ret == 1) {
        lists.damaged = true;
        return Util::dumpBrokenFile(path);
    }
    lists.cut = lists.cut || sums.records >= TopUrlRecord::g_listLength;
    const bool all = names::topAllFile(names::parentOf(path)) == path;
    lists.haveAll = lists.haveAll || all;
    (all ? lists.all : lists.types) += sums.total;
    return 0;
}

} // namespace

int checkFile(const std::string& path, uint32_t statusType, Reading reading) {
    bool recent = reading == Reading::Always;
    if (!recent && isRecent(path, recent) != 0) {
        return -1;
    }
    if (!recent || stopRequested()) {
        return 0;
    }
    const int ret = verifyTwice(path, statusType);
    return ret == 2 ? 0 : ret;
}

int checkTopLists(const std::string& directory, const std::string& formal, uint32_t statusType) {
    const std::string listDirectory = names::topDir(directory);
    bool recent = false;
    if (isRecent(formal, recent) != 0) {
        return -1;
    }
    if (!recent || stopRequested()) {
        return platform().exists(names::topAllFile(listDirectory)) ? 0 : 1;
    }
    uint64_t total = 0;
    const int ret = readTotal(formal, statusType, total);
    if (ret != 0) {
        LOG_ERROR("read status from %s fail", formal.c_str());
        return ret;
    }
    Lists lists;
    if (Util::tranverse(listDirectory, [&](const std::string& path, uint32_t attributes) {
            const bool list =
                (attributes & g_attributeDirectory) == 0 && path.ends_with(g_listEnding);
            return list ? addList(path, lists) : 0;
        }) != 0) {
        return LOG_FAIL("tranverse %s fail", listDirectory.c_str());
    }
    return stopRequested() || lists.fit(total) ? 0 : 1;
}

} // namespace kestrine
