// Where the logging product keeps its data, and how it is set up.
#include "frame/configuration.h"
#include "frame/ini_file.h"
#include "frame/log.h"
#include "frame/util.h"
#include "platform/platform.h"

#include <cerrno>

namespace kestrine {

namespace {

constexpr const char* g_loggerSettingsFile = "/etc/veltan/logconfig.ini";
constexpr const char* g_loggerSection = "loger";

// The data-path file in the installation root; empty when the executable lies in no installation.
std::string dataPathFile(std::string_view executable) {
    const size_t rootEnd = executable.rfind("/ml");
    if (rootEnd == std::string_view::npos) {
        return {};
    }
    return std::string(executable.substr(0, rootEnd)) + "/mysql_path.ini";
}

} // namespace

int getDataPath(std::string& dataPath) {
    std::string executable = platform().executablePath();
    if (executable.empty()) {
        LOG_ERROR("GetModuleFileName fail, errno %u", platform().lastError());
        return -1;
    }
    Util::replaceChar(executable, '\\', '/');
    const std::string iniName = dataPathFile(executable);
    if (iniName.empty()) {
        LOG_ERROR("%s invalid", executable.c_str());
        return -1;
    }
    if (iniName.size() > g_maxPath) {
        LOG_ERROR("sprintf_n fail errno %d", errno);
        return -1;
    }
    IniFile ini;
    if (ini.load(iniName) != 0) {
        LOG_ERROR("load %s fail", iniName.c_str());
        return -1;
    }
    std::string path(ini.find("mysql", "logdatapath").value_or(std::string_view()));
    if (path.empty()) {
        LOG_ERROR("empty config in %s", iniName.c_str());
        return -1;
    }
    Util::replaceChar(path, '\\', '/');
    dataPath = path + (path.ends_with('/') ? "log_data" : "/log_data");
    return 0;
}

LoggerSettings::LoggerSettings() {
    IniFile ini;
    if (ini.load(g_loggerSettingsFile) != 0) {
        return;
    }
    const int32_t blockLife = ini.integer(g_loggerSection, "maxBlockLife");
    if (blockLife >= 20 && blockLife <= 180) {
        maxBlockLife = blockLife;
    }
    const int32_t fileLife = ini.integer(g_loggerSection, "maxFileLife");
    if (fileLife >= 60 && fileLife <= 300 && fileLife > maxBlockLife) {
        maxFileLife = fileLife;
    }
}

} // namespace kestrine
