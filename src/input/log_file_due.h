// Which log files are there to be read.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

// Of a node's type directory (DATA/ACCOUNT/devid_N/DATE/A). 1: the file of this number is there
// and, if it is the newest and `settleTime` (seconds) is not 0, was last changed that long ago, so
// that nothing will be appended to it any more. 0: not so, or its name would be too long for a
// path, or it cannot be looked at for good (no access). -1: the call failed, which may pass.
[[nodiscard]] int isLogFileDue(const std::string& typeDirectory, int32_t number,
                               int32_t settleTime);

// The lowest number above `above` of a log file of a node's type directory, -1 when there is none.
// 0 or -1.
[[nodiscard]] int firstLogFileAbove(const std::string& typeDirectory, int32_t above,
                                    int32_t& number);

} // namespace kestrine
