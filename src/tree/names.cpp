#include "tree/names.h"

#include "frame/text.h"
#include "platform/platform.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <limits>

namespace kestrine::names {

namespace {

constexpr std::string_view g_topName = "topn";
constexpr std::string_view g_backupEnding = "_backup";
constexpr std::string_view g_tempEnding = ".temp";
constexpr std::string_view g_newDayEnding = ".daycrcsortnew";
constexpr std::string_view g_newDayTempEnding = "daycrcsortnew.temp";
constexpr std::string_view g_halfWrittenEnding = ".temp.temp";
constexpr std::string_view g_mergeRoundEnding = ".merge.temp";
constexpr std::string_view g_listEnding = ".top";
constexpr std::string_view g_deletePrefix = "_delete_";
constexpr size_t g_dateLength = 8;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool sameName(std::string_view a, std::string_view b) {
    return platform().sameFileName(std::string(a), std::string(b));
}

bool dropEnding(std::string_view& text, std::string_view ending) {
    if (!text.ends_with(ending)) {
        return false;
    }
    text.remove_suffix(ending.size());
    return true;
}

// Takes the digits at the beginning of the text; false when there are none.
bool takeDigits(std::string_view& text) {
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    text.remove_prefix(digits);
    return digits > 0;
}

std::string numbered(int32_t number, std::string_view ending) {
    return std::to_string(number).append(ending);
}

} // namespace

// ---- log data

std::string accountOf(std::string_view accountPath) {
    const std::string_view name = lastComponent(accountPath);
    // Names with a meaning of their own in the statistics root.
    if (name == "." || name == ".." || sameName(name, "debug") ||
        sameName(name.substr(0, g_deletePrefix.size()), g_deletePrefix)) {
        return {};
    }
    return std::string(name);
}

std::string accountOfNode(std::string_view nodePath) {
    return accountOf(parentOf(parentOf(nodePath)));
}

int32_t getDateOfPath(std::string_view path) {
    return leadingInteger(lastComponent(path));
}

std::string typeDir(std::string_view nodePath, char type) {
    return join(nodePath, std::string_view(&type, 1));
}

std::string datFile(std::string_view typeDirectory, int32_t number) {
    constexpr int32_t filesPerDirectory = 100;
    return join(join(typeDirectory, std::to_string(number / filesPerDirectory)),
                numbered(number, ".dat"));
}

// ---- accounts and dates of the statistics tree

std::string defaultStatRoot(std::string_view dataPath) {
    return join(dataPath, "_urlstat");
}

std::string defaultMemoryDisk(std::string_view dataPath) {
    return join(dataPath, "_memdisk");
}

std::string unitLockFile(std::string_view accountDir) {
    return join(accountDir, ".urlbuild.lock");
}

std::string lockFile(std::string_view root) {
    return join(root, ".kestrine.lock");
}

std::string accountDir(std::string_view root, std::string_view account) {
    return join(root, account);
}

std::string dateText(int32_t date) {
    char text[16];
    std::snprintf(text, sizeof text, "%04d%02d%02d", date / 10000, date % 10000 / 100, date % 100);
    return text;
}

bool isEightDigits(std::string_view text) {
    return text.size() == g_dateLength && std::all_of(text.begin(), text.end(), isDigit);
}

bool isCalendarDate(std::string_view date) {
    if (!isEightDigits(date)) {
        return false;
    }
    using namespace std::chrono;
    const int32_t number = getDateOfPath(date);
    return year_month_day(year(number / 10000), month(static_cast<unsigned>(number % 10000 / 100)),
                          day(static_cast<unsigned>(number % 100)))
        .ok();
}

bool isDateDirName(std::string_view name) {
    return isEightDigits(name) && name >= "20000001" && name <= "29999998";
}

std::string dayDir(std::string_view accountDir, std::string_view date) {
    return join(accountDir, date);
}

// ---- finished files

std::string_view formalName(Period period) {
    return kindOf(period).fileName;
}

std::string formalFile(std::string_view directory, Period period) {
    return join(directory, formalName(period));
}

std::string backupOf(std::string_view formalPath) {
    return std::string(formalPath).append(g_backupEnding);
}

std::string tempOf(std::string_view path) {
    return std::string(path).append(g_tempEnding);
}

std::string withoutTemp(std::string_view path) {
    dropEnding(path, g_tempEnding);
    return std::string(path);
}

// Anywhere in the name: what stands behind it changes nothing.
bool isHalfWritten(std::string_view name) {
    return name.find(g_halfWrittenEnding) != std::string_view::npos;
}

bool isOfFormalFile(std::string_view name) {
    return std::ranges::any_of(periodKinds(), [name](const PeriodKind& kind) {
        return name.find(kind.fileName) != std::string_view::npos;
    });
}

std::string formalOf(std::string_view path) {
    if (!dropEnding(path, g_backupEnding)) {
        // Any number of them: a temporary of a temporary leads to the same formal file.
        while (dropEnding(path, g_tempEnding)) {
        }
    }
    return std::string(path);
}

// ---- new-day files

std::string newTree(std::string_view accountDir) {
    return join(accountDir, "new");
}

std::string newDayDir(std::string_view accountDir, std::string_view date) {
    return join(newTree(accountDir), date);
}

std::string newDayFile(std::string_view newDayDirectory, int32_t number) {
    return join(newDayDirectory, numbered(number, g_newDayEnding));
}

bool isNewDayTemp(std::string_view name) {
    return name.find(g_newDayTempEnding) != std::string_view::npos;
}

int32_t newDayNumber(std::string_view path) {
    std::string_view name = lastComponent(path);
    int32_t number = 0;
    if (!dropEnding(name, g_newDayEnding) || name.empty() || !isDigit(name.front())) {
        return -1;
    }
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    const bool whole = error == std::errc() && end == name.data() + name.size();
    // "007" is none of our names: two names of one number would be two files of it.
    const bool canonical = name.front() != '0' || name.size() == 1;
    return whole && canonical && number < std::numeric_limits<int32_t>::max() ? number : -1;
}

std::string accountDirOfNewDayDir(std::string_view newDayDirectory) {
    return std::string(parentOf(parentOf(newDayDirectory)));
}

// ---- temporary files

std::string memoryDiskFile(std::string_view memoryDisk, std::string_view account, int32_t date,
                           int32_t counter) {
    return join(join(join(memoryDisk, account), std::to_string(date)),
                numbered(counter, g_tempEnding));
}

bool isTempFile(std::string_view name) {
    constexpr std::string_view endings[] = {g_tempEnding, g_halfWrittenEnding, g_mergeRoundEnding};
    bool numbered = takeDigits(name);
    if (numbered && name.starts_with('_')) {
        name.remove_prefix(1);
        numbered = takeDigits(name);
    }
    return numbered && std::ranges::find(endings, name) != std::end(endings);
}

std::string diskTempTree(std::string_view accountDir) {
    return join(accountDir, "diskTemp/");
}

std::string diskTempFile(std::string_view root, std::string_view account, int32_t date,
                         int32_t counter) {
    return join(diskTempDir(accountDir(root, account), std::to_string(date)),
                numbered(counter, g_tempEnding));
}

std::string mergeRoundFile(std::string_view diskTempDirectory, int32_t counter) {
    return join(diskTempDirectory, numbered(counter, g_mergeRoundEnding));
}

std::string diskTempDir(std::string_view accountDir, std::string_view date) {
    return join(diskTempTree(accountDir), date);
}

// ---- top lists

std::string topDir(std::string_view directory) {
    return join(directory, g_topName);
}

std::string topTempDir(std::string_view directory) {
    return tempOf(topDir(directory));
}

std::string topTempTempDir(std::string_view directory) {
    return tempOf(topTempDir(directory));
}

std::string topFile(std::string_view listDirectory, uint32_t type) {
    return join(listDirectory, std::to_string(type).append(g_listEnding));
}

std::string topAllFile(std::string_view listDirectory) {
    return join(listDirectory, "all.top");
}

bool isTopFile(std::string_view path) {
    return path.ends_with(g_listEnding);
}

// ---- others

std::string deletedPattern(std::string_view directory) {
    return std::string(directory).append("/").append(g_deletePrefix).append("*");
}

std::string dirStatFile(std::string_view directory) {
    return join(directory, "dirstat");
}

std::string dumpDir(std::string_view root, std::string_view path) {
    std::string_view name = lastComponent(parentOf(path));
    // A list goes where its file would: "topn" alone says nothing of its period.
    if (name == g_topName) {
        name = lastComponent(parentOf(parentOf(path)));
    }
    const bool whole = std::ranges::any_of(periodKinds(), [name](const PeriodKind& kind) {
        return !kind.prefix.empty() && name.starts_with(kind.prefix);
    });
    if (!whole) {
        name = name.substr(0, g_dateLength);
    }
    return join(join(root, "debug"), name) + "/";
}

std::string dumpFile(std::string_view dumpDirectory, int64_t seconds, std::string_view name) {
    return join(dumpDirectory, std::to_string(seconds)).append("_").append(name);
}

} // namespace kestrine::names
