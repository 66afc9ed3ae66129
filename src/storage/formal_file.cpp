#include "storage/formal_file.h"

#include "frame/log.h"
#include "platform/platform.h"
#include "storage/ownership.h"
#include "tree/names.h"
#include "tree/quarantine.h"

#include <algorithm>
#include <vector>

namespace kestrine {

namespace {

// Whether the status read is one of the account and period whose directory the file lies in.
bool belongsHere(UrlFile& file, const std::string& directory) {
    PeriodDir dir;
    if (!names::parsePeriodDir(names::lastComponent(directory), dir)) {
        return false;
    }
    const std::string account(names::lastComponent(names::parentOf(directory)));
    // The reader of a week or month status leaves its checksum to its caller: here a wrong one
    // makes the file damaged.
    return dir.period == Period::Day
               ? belongsToDay(*file.dayStatus(), account, dir.begin)
               : file.weekMonStatus()->checksumFits() &&
                     belongsToPeriod(*file.weekMonStatus(), account, dir.begin, dir.end);
}

// 0; 1 when the bytes are wrong; -1.
int openOnce(const PeriodFiles& files, Period period, std::unique_ptr<UrlFile>& file) {
    file = std::make_unique<UrlFile>();
    if (const int ret = file->openToRead(files.formal, kindOf(period).statusType); ret != 0) {
        return ret;
    }
    if (!belongsHere(*file, files.directory)) {
        LOG_ERROR("status of %s is damaged or of another account or date", files.formal.c_str());
        return 1;
    }
    return 0;
}

} // namespace

int openFormal(const PeriodFiles& files, Period period, std::unique_ptr<UrlFile>& file,
               bool* fellBack) {
    const auto note = [fellBack] {
        if (fellBack != nullptr) {
            *fellBack = true;
        }
    };
    // Left by a kill or a failure inside a replacement, or between quarantine and restore.
    if (!platform().exists(files.formal) && platform().exists(files.backup)) {
        note();
        if (Util::restoreBackup(files.formal) != 0) {
            return -1;
        }
    }
    // Twice at most: the file, then its backup. One more look finds neither.
    for (int looks = 0; platform().exists(files.formal); ++looks) {
        // So it is on a disk on which nothing changes.
        if (looks == 2) {
            return LOG_FAIL("%s is damaged and stays where it is", files.formal.c_str());
        }
        const int ret = openOnce(files, period, file);
        // With -1 the file stays where it is: nothing is moved on the ground of a failed call.
        if (ret <= 0) {
            return ret;
        }
        file.reset(); // closed before it is moved
        note();
        if (Util::setAside(files.formal) != 0) {
            return LOG_FAIL("set aside %s fail", files.formal.c_str());
        }
    }
    file.reset();
    return 1;
}

int lookAtFormal(const PeriodFiles& files, Period period, std::unique_ptr<UrlFile>& file) {
    if (!platform().exists(files.formal)) {
        return platform().exists(files.backup) ? 2 : 1;
    }
    const int ret = openOnce(files, period, file);
    if (ret != 0) {
        file.reset();
    }
    return ret == 1 ? 2 : ret;
}

int highestNumberKnown(const std::string& accountDir, const std::string& date, int32_t& known,
                       bool* fellBack) {
    known = -1;
    std::vector<PeriodOfDate> periods;
    if (periodsOfDate(accountDir, date, periods) != 0) {
        return -1;
    }
    for (const auto& [period, files] : periods) {
        // Callers have the day file's number from its own status.
        if (period == Period::Day) {
            continue;
        }
        std::unique_ptr<UrlFile> file;
        const int ret = openFormal(files, period, file, fellBack);
        if (ret < 0) {
            return LOG_FAIL("read status of %s fail", files.formal.c_str());
        }
        // A period without a file knows no number; it is built from the day files.
        if (ret == 0) {
            known = std::max(known, file->weekMonStatus()->counterOfDate(date));
        }
    }
    return 0;
}

} // namespace kestrine
