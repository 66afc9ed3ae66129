#include "frame/configuration.h"

#include "frame/ini_file.h"
#include "frame/install_root.h"
#include "frame/log.h"
#include "frame/text.h"
#include "platform/platform.h"

namespace kestrine {

namespace {

constexpr int32_t g_urlBlockSize = 2048; // KiB, not configurable

Configuration g_configuration;

// A path with '/' throughout, not of the working directory if the root is named.
std::string readPath(const IniFile& ini, const char* key) {
    std::string path(ini.find(Configuration::g_section, key).value_or(std::string_view()));
    Util::replaceChar(path, '\\', '/');
    return install::settingsPath(path);
}

} // namespace

std::span<const Configuration::NumericSetting> Configuration::numericSettings() {
    // Key, name in messages, unit, member; default, least and largest value.
    static constexpr NumericSetting settings[] = {
        {"maxHashMemory", "m_maxHashMemory", "KiB", &Configuration::m_maxHashMemory, 102400, 1,
         1048576},
        {"sleepTime", "m_sleepTime", "s", &Configuration::m_sleepTime, 10800, 1, 36000},
        {"daycrcsortInterval", "m_daycrcsortInterval", "s", &Configuration::m_daycrcsortInterval,
         18000, 1, 36000},
        {"weekmoncrcsortInterval", "m_weekmoncrcsortInterval", "s",
         &Configuration::m_weekmoncrcsortInterval, 86400, 1, 172800},
        {"exportPersent", "m_exportPersent", "%", &Configuration::m_exportPersent, 60, 1, 100},
        {"memoryDiskSize", "m_memoryDiskSize", "KiB", &Configuration::m_memoryDiskSize, 512000, 1,
         2097152},
        {"settleTime", "m_settleTime", "s", &Configuration::m_settleTime, 0, 0, 86400},
    };
    return settings;
}

int Configuration::getInstance(Configuration** instance) {
    if (instance == nullptr) {
        return LOG_FAIL("param invalid");
    }
    // Once in a process: the directories below hang on it, and may not change while they are
    // locked.
    if (g_configuration.m_loaded == 0) {
        const int result = g_configuration.loadConfiguration();
        // There, but not readable: with defaults the service might work on another tree.
        if (result < 0) {
            return LOG_FAIL("load configuration fail");
        }
        if (result == 1) {
            g_configuration.setDefaultConfiguration();
        } else {
            g_configuration.checkRange();
        }
        g_configuration.logSettings();
        g_configuration.m_loaded = 1;
    }
    *instance = &g_configuration;
    return 0;
}

void Configuration::resetInstance() {
    g_configuration = Configuration();
}

int Configuration::loadConfiguration() {
    const std::string file = install::settingsFile();
    if (!platform().exists(file)) {
        LOG_INFO("%s not exist", file.c_str());
        return 1;
    }
    IniFile ini;
    if (ini.load(file) != 0) {
        return LOG_FAIL("load %s fail", file.c_str());
    }
    for (const NumericSetting& setting : numericSettings()) {
        const auto value = ini.find(g_section, setting.key);
        this->*setting.member =
            value && !value->empty() ? leadingInteger(*value) : setting.defaultValue;
    }
    m_urlBlockSize = g_urlBlockSize;
    // Empty ones get their defaults from WorkThread::init, which knows the data path.
    m_urlStatRoot = readPath(ini, "urlStatRoot");
    if (m_urlStatRoot.empty()) {
        LOG_INFO("urlstatroot empty!");
    } else if (m_urlStatRoot.ends_with('/')) {
        LOG_INFO("m_urlStatRoot should not ends with / or \\, delete it");
        m_urlStatRoot.pop_back(); // one only
    }
    m_memoryDiskPath = readPath(ini, "memoryDiskPath");
    if (m_memoryDiskPath.empty()) {
        LOG_INFO("m_memoryDiskPath empty!");
    } else if (m_memoryDiskPath.ends_with('/')) {
        LOG_INFO("m_urlStatRoot should not ends with / or \\, delete it"); // the same words
        m_memoryDiskPath.pop_back();
    }
    return 0;
}

void Configuration::setDefaultConfiguration() {
    for (const NumericSetting& setting : numericSettings()) {
        this->*setting.member = setting.defaultValue;
    }
    m_urlBlockSize = g_urlBlockSize;
    LOG_INFO("set default configuration");
}

// Not the nearest bound: a value far out of range was meant for something else.
void Configuration::checkRange() {
    for (const NumericSetting& setting : numericSettings()) {
        int32_t& value = this->*setting.member;
        if (value < setting.minimum || value > setting.maximum) {
            LOG_INFO("%s out of range %d min %d max %d, set to default %d", setting.name, value,
                     setting.minimum, setting.maximum, setting.defaultValue);
            value = setting.defaultValue;
        }
    }
}

void Configuration::logSettings() const {
    LOG_INFO("m_maxHashMemory %dK", m_maxHashMemory);
    LOG_INFO("m_memoryDiskSize %dK", m_memoryDiskSize);
    LOG_INFO("m_urlBlockSize %dK", m_urlBlockSize);
    LOG_INFO("m_sleepTime %ds", m_sleepTime);
    LOG_INFO("m_daycrcsortInterval %ds", m_daycrcsortInterval);
    LOG_INFO("m_weekmoncrcsortInterval %ds", m_weekmoncrcsortInterval);
    LOG_INFO("m_exportPersent %d%%", m_exportPersent);
    LOG_INFO("m_settleTime %ds", m_settleTime);
    LOG_INFO("m_memoryDiskPath %s", m_memoryDiskPath.c_str());
    LOG_INFO("m_urlStatRoot %s", m_urlStatRoot.c_str());
}

void Configuration::setUrlStatRoot(const std::string& path) {
    LOG_INFO("set urlstat root path to %s", path.c_str());
    m_urlStatRoot = path;
}

void Configuration::setMemoryDiskPath(const std::string& path) {
    LOG_INFO("set memory disk path to %s", path.c_str());
    m_memoryDiskPath = path;
}

} // namespace kestrine
