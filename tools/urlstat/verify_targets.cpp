#include "verify_targets.h"

#include "failure.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <set>

namespace kestrine::viewer {

namespace {

uint64_t sizeOf(const std::string& path) {
    FileInfo info;
    return platform().info(path, info) == 0 && info.size > 0 ? static_cast<uint64_t>(info.size) : 0;
}

void addPeriodTarget(const PeriodEntry& entry, std::vector<VerifyTarget>& targets) {
    targets.push_back({entry.files.formal, kindOf(entry.files.formal),
                       FilePlace{entry.account, entry.dir}, entry, sizeOf(entry.files.formal)});
}

// ACCOUNTDIR/new/DATE/N.daycrcsortnew
std::optional<FilePlace> placeOfNewDay(std::string_view path) {
    const std::string_view directory = names::parentOf(path);
    const std::string date(names::lastComponent(directory));
    const std::string_view newTree = names::parentOf(directory);
    const std::string_view account = names::lastComponent(names::parentOf(newTree));
    if (newTree != names::newTree(names::parentOf(newTree)) || !names::isDateDirName(date)) {
        return std::nullopt;
    }
    return FilePlace{std::string(account), {Period::Day, date, date}};
}

std::optional<FilePlace> placeOf(const std::string& path) {
    const std::string full = slashes(platform().resolvedPath(path));
    const std::string_view directory = names::parentOf(full);
    PeriodDir dir;
    if (names::newDayNumber(full) >= 0) {
        return placeOfNewDay(full);
    }
    if (!names::isOfFormalFile(names::lastComponent(full)) ||
        !names::parsePeriodDir(names::lastComponent(directory), dir)) {
        return std::nullopt;
    }
    return FilePlace{std::string(names::lastComponent(names::parentOf(directory))), dir};
}

void addFile(const std::string& path, std::vector<VerifyTarget>& targets) {
    targets.push_back({path, kindOf(path), placeOf(path), std::nullopt, sizeOf(path)});
}

// Not the service's own, or none that counts: what was set aside, is swept, or half written.
bool isPassedOver(const std::string& name) {
    return name == "debug" || name == "diskTemp" || name.starts_with("_delete_") ||
           name.starts_with('.') || names::isHalfWritten(name);
}

void addDirectory(const std::string& path, std::vector<VerifyTarget>& targets) {
    const std::string full = slashes(platform().resolvedPath(path));
    PeriodDir dir;
    const bool inNew = names::lastComponent(names::parentOf(full)) == "new";
    if (!inNew && names::parsePeriodDir(names::lastComponent(full), dir)) {
        const std::string account(names::lastComponent(names::parentOf(full)));
        addPeriodTarget({account, dir, periodFiles(path, dir.period)}, targets);
        return;
    }
    std::vector<FindEntry> entries;
    if (Util::listEntries(names::join(path, "*"), entries, KESTRINE_HERE) != 0) {
        throw Failure(path + ": cannot be listed; check the permissions");
    }
    std::ranges::sort(entries, {}, &FindEntry::name);
    for (const FindEntry& entry : entries) {
        const std::string inside = names::join(path, entry.name);
        if (Util::isDirectory(entry) && !isPassedOver(entry.name)) {
            addDirectory(inside, targets);
        } else if (!Util::isDirectory(entry) &&
                   (names::newDayNumber(entry.name) >= 0 || names::isTopFile(entry.name))) {
            addFile(inside, targets);
        }
    }
}

} // namespace

void addAccountTargets(const StatTree& tree, const std::string& account,
                       std::vector<VerifyTarget>& targets) {
    for (const PeriodEntry& entry : tree.periods(account)) {
        addPeriodTarget(entry, targets);
    }
    addDirectory(names::newTree(tree.accountDir(account)), targets);
}

void addPathTargets(const std::string& named, std::vector<VerifyTarget>& targets) {
    const std::string path = slashes(named);
    FileInfo info;
    if (platform().info(path, info) != 0) {
        throw Failure(path + ": cannot be opened; is there such a file?");
    }
    if (info.isDirectory) {
        addDirectory(path, targets);
    } else if (platform().open(path, OpenMode::Read) == nullptr) {
        throw Failure(path + ": cannot be opened; check the permissions");
    } else {
        addFile(path, targets);
    }
}

} // namespace kestrine::viewer
