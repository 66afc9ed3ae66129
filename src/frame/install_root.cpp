#include "frame/install_root.h"

#include "frame/text.h"
#include "platform/platform.h"

namespace kestrine::install {

namespace {

std::string g_root;

// With the separator at its end; empty when it is not known.
std::string programDirectory() {
    const std::string path = platform().executablePath();
    return path.substr(0, path.find_last_of("/\\") + 1);
}

std::string below(const std::string& root, const char* name) {
    return root + (root.ends_with('/') ? "" : "/") + name;
}

std::string inWorkingDirectory(const char* name) {
    return g_root.empty() ? name : below(g_root, name);
}

std::string besideProgram(const char* name) {
    const std::string directory = g_root.empty() ? programDirectory() : g_root;
    return directory.empty() ? std::string() : below(directory, name);
}

bool hasDrive(const std::string& path) {
    return path.size() > 1 && path[1] == ':';
}

} // namespace

void nameRoot(const std::string& directory) {
    g_root = directory;
}

const std::string& namedRoot() {
    return g_root;
}

std::string settingsFile() {
    return inWorkingDirectory("config/urlstat.ini");
}

std::string keepMarker() {
    return inWorkingDirectory("do_not_delete_daycrcsortnew");
}

std::string accountFile() {
    return besideProgram("config/syncaccount.dat");
}

std::string logDirectory() {
    return besideProgram("log/kestrine");
}

std::string dataPathFile() {
    constexpr const char* name = "mysql_path.ini";
    if (!g_root.empty()) {
        return below(g_root, name);
    }
    std::string executable = platform().executablePath();
    Util::replaceChar(executable, '\\', '/');
    // The last one: directories above the installation may begin with the same letters.
    const size_t rootEnd = executable.rfind("/ml");
    return rootEnd == std::string::npos ? std::string()
                                        : executable.substr(0, rootEnd) + "/" + name;
}

std::string settingsPath(const std::string& path) {
    if (g_root.empty() || path.empty() || path.starts_with("//") || hasDrive(path)) {
        return path;
    }
    if (!path.starts_with('/')) {
        return below(g_root, path.c_str());
    }
    // Of a system with drives, on which such a path would depend on the working directory.
    return hasDrive(g_root) ? g_root.substr(0, 2) + path : path;
}

} // namespace kestrine::install
