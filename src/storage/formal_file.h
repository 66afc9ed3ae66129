// Opening the formal file of a period, whatever was done to it since it was written.
#pragma once

#include "storage/url_file.h"
#include "tree/period.h"

#include <memory>
#include <string>

namespace kestrine {

// Opens a day, week or month file and reads its status. Where the formal file is missing its backup
// is restored first. A file whose trailer is damaged, or whose status names another account or
// period (a restore gone wrong), goes to quarantine and its backup is tried. `fellBack`, if given,
// is set when a backup took its place or a file was given up.
//
// 0: open, positioned before the first block; 1: there is no such file; -1: a call failed, which
// says nothing about the file. A kill leaves the file, its backup, or both.
[[nodiscard]] int openFormal(const PeriodFiles& files, Period period,
                             std::unique_ptr<UrlFile>& file, bool* fellBack = nullptr);

// The same without any repair. 0; 1: there is neither the file nor a backup; 2: it is damaged, or
// there is only its backup; -1.
[[nodiscard]] int lookAtFormal(const PeriodFiles& files, Period period,
                               std::unique_ptr<UrlFile>& file);

// The highest new-day number of the date that its week and month file hold, -1 for none. Damage as
// above. 0 or -1.
[[nodiscard]] int highestNumberKnown(const std::string& accountDir, const std::string& date,
                                     int32_t& known, bool* fellBack = nullptr);

} // namespace kestrine
