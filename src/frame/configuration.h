// The service's settings.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kestrine {

// Settings of section "urlstat" in "config/urlstat.ini" (frame/install_root.h says where). Read
// once per process; a changed file takes effect at the next start.
class Configuration {
public:
    static constexpr const char* g_section = "urlstat";

    // A number among the settings. Outside its range the default holds.
    struct NumericSetting {
        const char* key;
        const char* name; // in messages
        const char* unit; // of the numbers here, and of the member
        int32_t Configuration::*member;
        int32_t defaultValue;
        int32_t minimum;
        int32_t maximum;
    };
    [[nodiscard]] static std::span<const NumericSetting> numericSettings();
    [[nodiscard]] int32_t valueOf(const NumericSetting& setting) const {
        return this->*setting.member;
    }

    // Stores the instance; the first call loads the file. 0, or -1. The process entry asks for it,
    // and hands it down by reference.
    [[nodiscard]] static int getInstance(Configuration** instance);
    // Forgets the instance, so that the next `getInstance` reads the file again.
    static void resetInstance();

    // Loads the file: 0 read, 1 not there, -1 not readable.
    [[nodiscard]] int loadConfiguration();
    // Every numeric member gets its default; the paths stay as they are.
    void setDefaultConfiguration();
    // Replaces numbers outside their range by the default.
    void checkRange();

    // Replaces a path as given, without clean-up.
    void setUrlStatRoot(const std::string& path);
    void setMemoryDiskPath(const std::string& path);

    // Sizes are bytes, times seconds.
    [[nodiscard]] int64_t maxHashMemory() const { return int64_t{m_maxHashMemory} * 1024; }
    [[nodiscard]] int64_t memoryDiskSize() const { return int64_t{m_memoryDiskSize} * 1024; }
    [[nodiscard]] int32_t urlBlockSize() const { return m_urlBlockSize * 1024; }
    [[nodiscard]] int32_t sleepTime() const { return m_sleepTime; }
    [[nodiscard]] int32_t daycrcsortInterval() const { return m_daycrcsortInterval; }
    [[nodiscard]] int32_t weekmoncrcsortInterval() const { return m_weekmoncrcsortInterval; }
    [[nodiscard]] int32_t exportPersent() const { return m_exportPersent; }
    // How long a node's newest log file must have rested before it is opened; 0 opens it at once.
    [[nodiscard]] int32_t settleTime() const { return m_settleTime; }
    [[nodiscard]] const std::string& memoryDiskPath() const { return m_memoryDiskPath; }
    [[nodiscard]] const std::string& urlStatRoot() const { return m_urlStatRoot; }

private:
    void logSettings() const;

    int32_t m_loaded = 0;
    int32_t m_maxHashMemory = 0;          // KiB
    int32_t m_sleepTime = 0;              // seconds
    int32_t m_daycrcsortInterval = 0;     // seconds
    int32_t m_weekmoncrcsortInterval = 0; // seconds
    int32_t m_exportPersent = 0;          // per cent
    int32_t m_memoryDiskSize = 0;         // KiB
    int32_t m_urlBlockSize = 0;           // KiB
    int32_t m_settleTime = 0;             // seconds
    std::string m_memoryDiskPath;
    std::string m_urlStatRoot;
};

} // namespace kestrine
