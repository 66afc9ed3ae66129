#include "date_locks.h"

#include "not_now.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <chrono>
#include <cstdint>
#include <limits>

namespace kestrine::build {

namespace {

// Beyond the last byte that a date of the calendar has.
constexpr uint64_t g_otherDates = uint64_t{1} << 24;
constexpr auto g_allBytes = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());

// Days since 1970, so that the dates of a week or month lie side by side.
uint64_t byteOf(const std::string& date) {
    const int32_t number = names::getDateOfPath(date);
    if (!names::isCalendarDate(date)) {
        return g_otherDates + static_cast<uint64_t>(number);
    }
    using namespace std::chrono;
    const sys_days day =
        year_month_day(year(number / 10000), month(static_cast<unsigned>(number % 10000 / 100)),
                       std::chrono::day(static_cast<unsigned>(number % 100)));
    return static_cast<uint64_t>(day.time_since_epoch().count());
}

DateLock lockBytes(const Account& account, uint64_t first, uint64_t count) {
    const std::string file = names::unitLockFile(account.directory);
    // Beside others, who may make it as well.
    if (Util::createDir(account.directory + "/") != 0) {
        throw Failure(account.directory + ": cannot be made; see the lines above it");
    }
    DateLock lock;
    switch (platform().lockFileBytes(file, first, count, lock)) {
    case LockResult::Locked:
        return lock;
    case LockResult::HeldByAnother:
        throw notNow(file + ": another unit is at work there; try again when it has ended");
    case LockResult::NotSupported:
        throw Failure(file + ": the volume has no locks of parts of files, on which the work of "
                             "several programs rests; leave the work to the service");
    case LockResult::Failed:
        break;
    }
    throw Failure(file + ": cannot be locked, error " + std::to_string(platform().lastError()) +
                  "; check the permissions");
}

} // namespace

DateLock lockDates(const Account& account, const std::string& begin, const std::string& end) {
    const uint64_t first = byteOf(begin);
    return lockBytes(account, first, byteOf(end) - first + 1);
}

DateLock lockAccount(const Account& account) {
    return lockBytes(account, 0, g_allBytes);
}

} // namespace kestrine::build
