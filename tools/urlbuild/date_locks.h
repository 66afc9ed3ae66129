// What a unit works on is its own while it works: every date has a byte in a file of its account,
// which is locked. A lock dies with the process that holds it.
#pragma once

#include "installation.h"
#include "platform/platform.h"

#include <memory>
#include <string>

namespace kestrine::build {

using DateLock = std::unique_ptr<NamedEvent>;

// The dates from `begin` to `end`, in eight digits. One that is none of the calendar has a byte of
// its own, too. Not waited for: throws `notNow` when another unit has one of them, and Failure.
[[nodiscard]] DateLock lockDates(const Account& account, const std::string& begin,
                                 const std::string& end);
// All that the account has.
[[nodiscard]] DateLock lockAccount(const Account& account);

} // namespace kestrine::build
