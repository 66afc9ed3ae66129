// The install tree of a world: settings, data-path file and account record file.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace worldgen {

struct InstallSettings {
    // Lines of section "urlstat" in urlstat.ini, in this order.
    std::vector<std::pair<std::string, std::string>> urlstat;
    // Value of "logdatapath"; the absolute path of ROOT/data in the host's syntax when absent.
    std::optional<std::string> dataPath;
    // Writes the account record file in its older layout.
    bool olderAccountLayout = false;
};

// ROOT/install/ml, the directory for the service's executable.
std::filesystem::path programDir(const std::filesystem::path& root);
std::filesystem::path urlstatIniPath(const std::filesystem::path& root);
std::filesystem::path accountFilePath(const std::filesystem::path& root);

//  Account record file
//  offset  size  field
//       0     4  magic: 0x87512546, older layout 0x89156984
//       4     4  number of records
//       8     4  layout version: 0x10010, older layout 0x3030
//      12     4  free
//      16   ...  records of 5662 bytes, older layout 5278; at offset 40 of each the account's name,
//                36 bytes with its terminating zero
//
// The names are stored as they are given; a reader joins data path and name directly, so a name
// begins with its separator ("\\alice"). The bytes around the names are neither zero nor alike.
std::string accountFileBytes(const std::vector<std::string>& storedNames, bool olderLayout);

// Account names of the file in either layout, with the leading separator removed and every other
// one turned into '/'. Throws std::runtime_error when the file cannot be read.
std::vector<std::string> readAccounts(const std::filesystem::path& root);

// Writes (or replaces) ROOT/install with these accounts ("alice"). Throws std::runtime_error.
void writeInstall(const std::filesystem::path& root, const std::vector<std::string>& accounts,
                  const InstallSettings& settings);

// Replaces a file by these bytes, making its directory. Throws std::runtime_error.
void writeFile(const std::filesystem::path& path, const std::string& bytes);

} // namespace worldgen
