// Where the logging product keeps its data, and how it is set up.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

// Root of the log data: the "logdatapath" of "mysql_path.ini" in the installation root
// (frame/install_root.h) followed by "/log_data". 0 or -1.
[[nodiscard]] int getDataPath(std::string& dataPath);

// The logging product's own settings, read when constructed.
struct LoggerSettings {
    LoggerSettings();

    int32_t defaultBlockSize = 2097152; // bytes, largest valid block
    int32_t maxBlockLife = 60;          // seconds
    int32_t maxFileLife = 300;          // seconds
};

} // namespace kestrine
