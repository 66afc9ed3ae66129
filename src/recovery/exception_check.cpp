// The check of one account:
//
//  1. In the "new" tree every half-written new-day file is removed.
//  2. In every day, week and month directory
//     a. names with ".temp.temp" are removed, an incomplete set of lists ("topn.temp.temp") too;
//     b. the formal file, its backup and its temporary are settled: a temporary is never promoted,
//        a backup comes back only when the formal file is missing or damaged;
//     c. a complete set of lists that is not in place ("topn.temp") is put there, or deleted
//        together with "topn" when there is no formal file;
//     d. a formal file without lists, or with lists that are damaged or not all there, gets new
//        ones.
//  3. Damaged new-day files, and files that contradict each other, are set aside
//     (period_check.cpp). Where a file gave way to its backup there, step 2 again for its
//     directory, and, as that may show damage, step 3.
#include "recovery/exception_check.h"

#include "frame/log.h"
#include "platform/platform.h"
#include "recovery/file_check.h"
#include "recovery/period_check.h"
#include "storage/formal_file.h"
#include "storage/status.h"
#include "topn/top_url_record.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"
#include "tree/top_list_dirs.h"

#include <cerrno>

namespace kestrine {

namespace {

bool isDirectory(uint32_t attributes) {
    return (attributes & g_attributeDirectory) != 0;
}

// An entry that has a name of ours but is no file where a file should be, or no directory where a
// directory should be, stands in the way of every stage: it goes to quarantine. That may be a pipe
// or a link to nothing, too, which no test for existence tells. 0 when it is of the right kind or
// has gone; 1 when it was moved; -1.
int settleKind(const std::string& path, bool wantDirectory) {
    FileInfo info;
    if (platform().info(path, info) != 0) {
        return errno == ENOENT || errno == ENOTDIR
                   ? 0
                   : LOG_FAIL("_stati64 fail %s errno %d", path.c_str(), errno);
    }
    if (info.isDirectory == wantDirectory && !info.isOther) {
        return 0;
    }
    LOG_ERROR("%s is %s, set aside", path.c_str(), wantDirectory ? "no directory" : "no file");
    return Util::dumpBrokenFile(path) == 0 ? 1 : -1;
}

// The attributes by which a listing would name the path. False when there is nothing.
bool attributesOf(const std::string& path, uint32_t& attributes) {
    FileInfo info;
    const bool known = platform().info(path, info) == 0;
    // What cannot be looked at is taken for a directory: the next call tells.
    attributes = !known || info.isDirectory ? g_attributeDirectory : 0;
    return known || platform().exists(path);
}

int deleteList(const std::string& directory) {
    if (Util::deleteListDirectory(directory) != 0) {
        return LOG_FAIL("delete dir %s fail", directory.c_str());
    }
    return 0;
}

} // namespace

int ExceptionCheck::check(const std::string& accountPath) {
    const std::string directory =
        names::accountDir(m_configuration.urlStatRoot(), names::accountOf(accountPath));
    const std::string newTree = names::newTree(directory);
    // Without the slash at its end, behind which a file would not be found.
    const std::string diskTemp =
        names::join(directory, names::lastComponent(names::diskTempTree(directory)));
    // From the outside in: what lies in something that is no directory cannot be looked at.
    for (const std::string& path : {directory, newTree, diskTemp}) {
        if (settleKind(path, true) < 0) {
            return -1;
        }
    }
    if (Util::tranverse(newTree, [this](const std::string& path, uint32_t attributes) {
            return checknewDirectory(path, attributes);
        }) != 0) {
        return LOG_FAIL("tranverseFile %s fail", newTree.c_str());
    }
    if (Util::tranverse(directory, [this](const std::string& path, uint32_t attributes) {
            return checkDayWeekMon(path, attributes);
        }) != 0) {
        return LOG_FAIL("tranverse %s fail", directory.c_str());
    }
    // It ends: a round that is followed by another has used up a backup or a damaged file.
    for (bool again = true; again;) {
        PeriodCheck periods(directory);
        if (periods.check() != 0) {
            return LOG_FAIL("check of periods of %s fail", directory.c_str());
        }
        for (const std::string& changed : periods.fellBack()) {
            if (checkDayWeekMon(changed, g_attributeDirectory) != 0) {
                return LOG_FAIL("check of %s fail", changed.c_str());
            }
        }
        again = !periods.fellBack().empty();
    }
    return 0;
}

int ExceptionCheck::checkDate(const std::string& accountDir, const std::string& date) {
    const std::string newDirectory = names::newDayDir(accountDir, date);
    const std::string dayDirectory = names::dayDir(accountDir, date);
    uint32_t attributes = 0;
    if (attributesOf(newDirectory, attributes) &&
        checknewDirectory(newDirectory, attributes) != 0) {
        return LOG_FAIL("check of %s fail", newDirectory.c_str());
    }
    for (bool again = true; again;) {
        if (checkPeriod(dayDirectory) != 0) {
            return -1;
        }
        PeriodCheck periods(accountDir);
        if (periods.checkDate(date) != 0) {
            return LOG_FAIL("check of date %s fail", date.c_str());
        }
        again = periods.fellBack().contains(dayDirectory);
    }
    return 0;
}

int ExceptionCheck::checkPeriod(const std::string& directory) {
    uint32_t attributes = 0;
    if (attributesOf(directory, attributes) && checkDayWeekMon(directory, attributes) != 0) {
        return LOG_FAIL("check of %s fail", directory.c_str());
    }
    return 0;
}

int ExceptionCheck::checknewDirectory(const std::string& path, uint32_t attributes) {
    if (!isDirectory(attributes)) {
        LOG_INFO("%s is not directory", path.c_str());
        const bool ours = names::isDateDirName(names::lastComponent(path));
        return ours && settleKind(path, true) < 0 ? -1 : 0;
    }
    return Util::tranverse(path, [this](const std::string& entry, uint32_t entryAttributes) {
        return checkDaycrcsortNew(entry, entryAttributes);
    });
}

int ExceptionCheck::checkDaycrcsortNew(const std::string& path, uint32_t attributes) {
    const bool temp = names::isNewDayTemp(names::lastComponent(path));
    if (isDirectory(attributes)) {
        LOG_INFO("%s is not a file", path.c_str());
    }
    if (isDirectory(attributes) || !temp) {
        const bool ours = temp || names::newDayNumber(path) >= 0;
        // What has no name of ours stands in nobody's way and is left alone.
        return ours && settleKind(path, false) < 0 ? -1 : 0;
    }
    LOG_INFO("broken file %s", path.c_str());
    // Never finished, so its positions count for nothing and its logs are read again.
    if (platform().removeFile(path) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
    }
    return 0;
}

int ExceptionCheck::checkDayWeekMon(const std::string& path, uint32_t attributes) {
    Period period = Period::Day;
    const std::string name(names::lastComponent(path));
    if (!isDirectory(attributes)) {
        LOG_INFO("%s is not a directory, skip", path.c_str());
        return names::parsePeriodDir(name, period) && settleKind(path, true) < 0 ? -1 : 0;
    }
    if (!names::parsePeriodDir(name, period)) {
        LOG_INFO("%s %s is not valid, skip", path.c_str(), name.c_str());
        return 0;
    }
    return crcsort(path, period);
}

int ExceptionCheck::crcsort(const std::string& directory, Period period) {
    const std::string incomplete = names::topTempTempDir(directory);
    if (platform().exists(incomplete)) {
        LOG_ERROR("error dir %s exist, delete", incomplete.c_str());
        if (deleteList(incomplete) != 0) {
            return -1;
        }
    }
    const PeriodFiles files = periodFiles(directory, period);
    // Before the files are settled, which asks only whether something of a name is there.
    for (const std::string& path :
         {files.formal, files.backup, files.temp, names::dirStatFile(directory)}) {
        if (settleKind(path, false) < 0) {
            return -1;
        }
    }
    for (const std::string& path : {files.lists, names::topTempDir(directory)}) {
        if (settleKind(path, true) < 0) {
            return -1;
        }
    }
    if (Util::tranverse(directory, [this](const std::string& path, uint32_t attributes) {
            const bool halfWritten = names::isHalfWritten(names::lastComponent(path));
            return isDirectory(attributes) && !halfWritten ? 0 : dealWithFile(path);
        }) != 0) {
        return LOG_FAIL("deal with %s fail", directory.c_str());
    }
    // After all entries: by now a backup without its formal file has been restored.
    std::optional<FileSums> sums;
    if (giveWayToBackup(files, period, sums) != 0) {
        return LOG_FAIL("deal with %s fail", files.formal.c_str());
    }
    if (!platform().exists(files.formal)) {
        LOG_INFO("%s not exist, skip", files.formal.c_str());
    }
    if (settleTopLists(directory, period) != 0) {
        return -1;
    }
    return makeMissingLists(files, period, sums);
}

int ExceptionCheck::dealWithFile(const std::string& path) {
    const std::string_view name = names::lastComponent(path);
    if (names::isHalfWritten(name)) {
        return removeHalfWritten(path);
    }
    if (!names::isOfFormalFile(name)) {
        LOG_INFO("%s invalid, skip", path.c_str());
        return 0;
    }
    if (tryRecovery(names::formalOf(path)) != 0) {
        return LOG_FAIL("try recover %s fail", path.c_str());
    }
    return 0;
}

int ExceptionCheck::removeHalfWritten(const std::string& path) {
    LOG_INFO("find broken file %s, remove", path.c_str());
    FileInfo info;
    const bool directory = platform().info(path, info) == 0 && info.isDirectory;
    if ((directory ? Util::deleteDir(path) : platform().removeFile(path)) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
    }
    return 0;
}

//   formal backup temp   action
//   yes    any    yes    remove temp
//   no     no     yes    remove temp
//   no     yes    yes    remove temp, rename backup to formal
//   no     yes    no     rename backup to formal
//   any other            nothing
int ExceptionCheck::tryRecovery(const std::string& formal) {
    const std::string backup = names::backupOf(formal);
    const std::string temp = names::tempOf(formal);
    const bool haveFormal = platform().exists(formal);
    const bool haveBackup = platform().exists(backup);
    const bool haveTemp = platform().exists(temp);
    const bool restore = !haveFormal && haveBackup;
    if (restore && haveTemp) {
        LOG_ERROR("impossible!!! backup and temp exist, but formal not exist, delete temp and "
                  "rename %s back to %s",
                  backup.c_str(), formal.c_str());
    } else if (haveTemp) {
        LOG_INFO("formal %d, backup %d, temp %d, delete %s and return", haveFormal, haveBackup,
                 haveTemp, temp.c_str());
    } else if (restore) {
        LOG_INFO("formal %d, backup %d, temp %d, rename %s to %s", haveFormal, haveBackup, haveTemp,
                 backup.c_str(), formal.c_str());
    }
    // First, also where a backup comes back: a temporary is merged again from files that still
    // wait.
    if (haveTemp && platform().removeFile(temp) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", temp.c_str(), errno);
    }
    if (!restore) {
        return 0;
    }
    return Util::restoreBackup(formal);
}

// A damaged formal file gives way to its backup, and that, if it is damaged too, to nothing. `sums`
// is what the file holds, if it was read through.
int ExceptionCheck::giveWayToBackup(const PeriodFiles& files, Period period,
                                    std::optional<FileSums>& sums) {
    std::unique_ptr<UrlFile> file;
    bool fellBack = false;
    if (openFormal(files, period, file, &fellBack) < 0) {
        return -1;
    }
    file.reset();
    // What took the place of a damaged file is read through, however old it is.
    Reading reading = fellBack ? Reading::Always : Reading::IfMayBeTorn;
    for (; platform().exists(files.formal); reading = Reading::Always) {
        FileSums found;
        const int ret = checkFile(files.formal, kindOf(period).statusType, reading, &found);
        if (ret == 0) {
            sums = std::move(found);
        }
        if (ret != 1) {
            return ret < 0 ? -1 : 0;
        }
        if (Util::setAside(files.formal) != 0) {
            return LOG_FAIL("remove broken file %s fail", files.formal.c_str());
        }
    }
    return 0;
}

int ExceptionCheck::settleTopLists(const std::string& directory, Period period) {
    const std::string current = names::topDir(directory);
    const std::string complete = names::topTempDir(directory);
    if (!platform().exists(names::formalFile(directory, period))) {
        return deleteList(complete) == 0 ? Util::deleteTopLists(directory) : -1;
    }
    if (!platform().exists(complete)) {
        return 0;
    }
    // A directory is not renamed over another one; a kill in between leaves the complete set.
    if (deleteList(current) != 0) {
        return -1;
    }
    if (platform().rename(complete, current) != 0) {
        return LOG_FAIL("rename %s to %s fail, errno %d", complete.c_str(), current.c_str(), errno);
    }
    return Util::syncParent(current);
}

// A formal file that turns out to be damaged gives way to its backup, which gets the lists instead.
int ExceptionCheck::makeMissingLists(const PeriodFiles& files, Period period,
                                     const std::optional<FileSums>& sums) {
    const FileSums* known = sums ? &*sums : nullptr;
    // The file and, if it turns out to be damaged, its backup.
    for (int tries = 0; tries < 2 && platform().exists(files.formal); ++tries) {
        // Also lists that are there: they are not synced, and may be older than a file that came
        // back.
        const int lists = checkTopLists(files.directory, files.formal, known);
        if (lists <= 0) {
            return lists;
        }
        TopUrlRecord top;
        if (Util::deleteTopLists(files.directory) == 0 &&
            top.createTop(kindOf(period).statusType, files.directory, files.formal) == 0) {
            return 0;
        }
        LOG_ERROR("create top for %s fail", files.formal.c_str());
        known = nullptr; // another file may stand here now
    }
    return platform().exists(files.formal) ? -1 : 0;
}

} // namespace kestrine
