#include "stat_file.h"

#include "failure.h"

namespace kestrine::viewer {

namespace {

constexpr int g_tries = 10;
constexpr uint32_t g_pauseBetweenTries =
    50; // ms; a replacement lacks the name between two renames only

} // namespace

bool isThere(const std::string& path) {
    for (int tries = 1; !platform().exists(path); ++tries) {
        if (tries == g_tries) {
            return false;
        }
        platform().sleep(g_pauseBetweenTries);
    }
    return true;
}

std::unique_ptr<UrlFile> openStatFile(const std::string& path, uint32_t statusType) {
    // A name that goes between the look and the opening is on its way to be replaced.
    for (int tries = 1;; ++tries) {
        auto file = std::make_unique<UrlFile>();
        const int result = file->openToRead(path, statusType);
        if (result == 0) {
            return file;
        }
        if (file->isOpen() || tries == g_tries) {
            throw readFailure(*file);
        }
        if (!isThere(path)) {
            return nullptr;
        }
    }
}

std::unique_ptr<UrlFile> openPeriod(const PeriodFiles& files, Period period) {
    // Without a directory or a backup nothing is about to take the name.
    if (!platform().exists(files.formal) && !platform().exists(files.backup) &&
        !platform().exists(files.temp)) {
        return nullptr;
    }
    return openStatFile(files.formal, kindOf(period).statusType);
}

Failure readFailure(const UrlFile& file) {
    return file.broken()
               ? damageFailure(file.path())
               : Failure(file.path() + ": cannot be read; check the disk and the permissions");
}

Failure damageFailure(const std::string& path) {
    return Failure(path + ": is damaged; \"urlstat verify\" says what that means");
}

HeaderSums sumHeaders(UrlFile& file) {
    HeaderSums sums;
    BlockHeader header;
    int result = 0;
    while ((result = file.readBlockHeader(header)) == 0) {
        ++sums.blocks;
        sums.records += static_cast<uint64_t>(header.count);
        if (file.skipBlockData() != 0) {
            throw readFailure(file);
        }
    }
    if (result != 1) {
        throw readFailure(file);
    }
    return sums;
}

} // namespace kestrine::viewer
