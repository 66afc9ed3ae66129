// Statistics files that are read while a service may replace them.
#pragma once

#include "failure.h"
#include "storage/url_file.h"
#include "tree/period.h"

#include <memory>
#include <string>

namespace kestrine::viewer {

// Whether there is a file of this name, also if it is missing for the moment of a replacement.
[[nodiscard]] bool isThere(const std::string& path);

// Opens a file and reads its status, positioned before its first block. A name that is missing for
// the moment of a replacement is tried again; null when there is no such file. What is open stays
// what it was, whatever takes its name. Throws Failure when it is damaged or cannot be read.
[[nodiscard]] std::unique_ptr<UrlFile> openStatFile(const std::string& path, uint32_t statusType);

// The current file of a period, or null.
[[nodiscard]] std::unique_ptr<UrlFile> openPeriod(const PeriodFiles& files, Period period);

// The failure of a read of the file, which it knows to be damaged or not.
[[nodiscard]] Failure readFailure(const UrlFile& file);
[[nodiscard]] Failure damageFailure(const std::string& path);

// What the block headers of an open file say; it is at its end afterwards. Throws Failure.
struct HeaderSums {
    uint64_t blocks = 0;
    uint64_t records = 0;
};
[[nodiscard]] HeaderSums sumHeaders(UrlFile& file);

} // namespace kestrine::viewer
