// Where the installation lies: every path that does not come from the settings.
//
//                 by default                              with the root DIR
//   settings      config/urlstat.ini, working directory   DIR/config/urlstat.ini
//   accounts      PROGRAM/config/syncaccount.dat          DIR/config/syncaccount.dat
//   log files     PROGRAM/log/kestrine                    DIR/log/kestrine
//   data path     ROOT/mysql_path.ini                     DIR/mysql_path.ini
//   keep marker   do_not_delete_daycrcsortnew,            DIR/do_not_delete_daycrcsortnew
//                 working directory
//
// PROGRAM is the directory of the executable, ROOT its path up to the last "/ml". Each of these may
// be a link, so that DIR/config and DIR/log may lie elsewhere.
#pragma once

#include <string>

namespace kestrine::install {

// Names the root: an absolute path. Before the first log line, and before any other thread exists.
// Empty: the default, which holds without a call.
void nameRoot(const std::string& directory);
// Empty by default.
[[nodiscard]] const std::string& namedRoot();

[[nodiscard]] std::string settingsFile();
[[nodiscard]] std::string keepMarker();
// Empty when the executable's path is not known or names no directory; the last one also when the
// executable lies in no installation.
[[nodiscard]] std::string accountFile();
[[nodiscard]] std::string logDirectory();
[[nodiscard]] std::string dataPathFile();

// A path of the settings, with '/' throughout: a relative one lies below the named root, or, by
// default, in the working directory. An empty one stays empty.
[[nodiscard]] std::string settingsPath(const std::string& path);

} // namespace kestrine::install
