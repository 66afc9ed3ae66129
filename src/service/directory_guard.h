// Which directories the service may work in. The memory disk is deleted with all it holds, at start
// and at the end, so that a wrong setting must not lead it to anything else.
#pragma once

#include <string>

namespace kestrine {

// Whether a directory may serve as the memory disk: it does not exist, is empty, or holds nothing
// but what the service itself puts there, which is the file `g_memoryDiskMarker` and
// ACCOUNT/DATE/N.temp. Links are followed to what they name; none may lie inside. Neither may the
// data path nor the statistics root lie in it. A refusal is reported.
[[nodiscard]] bool mayBeMemoryDisk(const std::string& memoryDisk, const std::string& dataPath,
                                   const std::string& urlStatRoot);
// Whether what lies in the memory disk may be deleted now. A refusal is reported.
[[nodiscard]] bool holdsOnlySpillFiles(const std::string& memoryDisk);

// Whether a directory may be the statistics root: not inside a device's log data, and the install
// directory not in it. A refusal is reported.
[[nodiscard]] bool mayBeUrlStatRoot(const std::string& urlStatRoot, const std::string& dataPath);

// Whether every name that the service makes below the two directories fits into a path, account
// names of 35 characters included. A refusal is reported.
[[nodiscard]] bool leavesRoomForNames(const std::string& memoryDisk,
                                      const std::string& urlStatRoot);

// Tells whoever wonders what a memory disk is, and is locked while a service runs on it.
constexpr const char* g_memoryDiskMarker = ".kestrine-memory-disk";
[[nodiscard]] std::string memoryDiskMarker(const std::string& memoryDisk);

} // namespace kestrine
