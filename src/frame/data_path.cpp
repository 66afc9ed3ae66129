#include "frame/data_path.h"

#include "frame/ini_file.h"
#include "frame/install_root.h"
#include "frame/log.h"
#include "frame/text.h"
#include "platform/platform.h"

#include <cerrno>

namespace kestrine {

namespace {

constexpr const char* g_loggerSettingsFile = "/etc/veltan/logconfig.ini";
constexpr const char* g_loggerSection = "loger";

} // namespace

int getDataPath(std::string& dataPath) {
    const std::string iniName = install::dataPathFile();
    if (iniName.empty()) {
        std::string executable = platform().executablePath();
        if (executable.empty()) {
            return LOG_FAIL("GetModuleFileName fail, errno %u", platform().lastError());
        }
        Util::replaceChar(executable, '\\', '/');
        return LOG_FAIL("%s invalid", executable.c_str());
    }
    if (iniName.size() > g_maxPath) {
        return LOG_FAIL("sprintf_n fail errno %d", errno);
    }
    IniFile ini;
    if (ini.load(iniName) != 0) {
        return LOG_FAIL("load %s fail", iniName.c_str());
    }
    std::string path(ini.find("mysql", "logdatapath").value_or(std::string_view()));
    if (path.empty()) {
        return LOG_FAIL("empty config in %s", iniName.c_str());
    }
    Util::replaceChar(path, '\\', '/');
    path = install::settingsPath(path);
    dataPath = path + (path.ends_with('/') ? "log_data" : "/log_data");
    return 0;
}

LoggerSettings::LoggerSettings() {
    IniFile ini;
    // The logging product need not be configured; then its defaults hold, as with values out of
    // range.
    if (ini.load(g_loggerSettingsFile) != 0) {
        return;
    }
    const int32_t blockLife = ini.integer(g_loggerSection, "maxBlockLife");
    if (blockLife >= 20 && blockLife <= 180) {
        maxBlockLife = blockLife;
    }
    const int32_t fileLife = ini.integer(g_loggerSection, "maxFileLife");
    // A file lives longer than the blocks in it.
    if (fileLife >= 60 && fileLife <= 300 && fileLife > maxBlockLife) {
        maxFileLife = fileLife;
    }
}

} // namespace kestrine
