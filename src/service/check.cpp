// The report goes from the settings to what hangs on them:
//   1. the settings, each with its source
//   2. the paths
//   3. the guards of the start, and whether the service runs
//   4. the accounts
//   5. what is wrong: the error lines that 1 to 4 gave rise to
#include "service/check.h"

#include "frame/configuration.h"
#include "frame/data_path.h"
#include "frame/ini_file.h"
#include "frame/install_root.h"
#include "frame/log.h"
#include "frame/text.h"
#include "input/abstract_new_data.h"
#include "service/directory_guard.h"
#include "service/dry_run_platform.h"
#include "service/start_up.h"
#include "tree/free_space.h"
#include "tree/names.h"
#include "version.h"

#include <algorithm>
#include <cerrno>
#include <set>

namespace kestrine {

namespace {

// Where a number comes from, by what stands in the file.
std::string sourceOf(int32_t value, std::string_view written) {
    const std::string quoted = "\"" + std::string(written) + "\"";
    if (written.empty()) {
        return "default";
    }
    if (leadingInteger(written) != value) {
        return "default, since " + quoted + " is out of range";
    }
    return written == std::to_string(value) ? "set" : "set by " + quoted;
}

// Lists every node, read or not.
class AllNodes final : public AbstractNewData {
public:
    [[nodiscard]] int haveNewData(const std::string&) override { return 1; }
};

class Check {
public:
    [[nodiscard]] int run(std::string& report);

private:
    void line(std::string text);
    void pathLine(const std::string& what, const std::string& path);
    [[nodiscard]] bool settings();
    void settingLines(const Configuration& configuration);
    [[nodiscard]] bool paths(const Configuration& configuration);
    void directories(const Configuration& configuration);
    void instance() const;
    void guards() const;
    void space();
    void accounts();
    void account(const std::string& path);
    [[nodiscard]] int verdict();

    DryRunPlatform m_platform;
    std::string m_report;
    std::string m_dataPath;
    std::string m_urlStatRoot;
    std::string m_memoryDisk;
};

int Check::run(std::string& report) {
    line(std::string("kestrine ") + g_version);
    const bool known = settings();
    instance();
    // Without the paths there is nothing that the others could look at.
    if (known) {
        guards();
        space();
        accounts();
    }
    const int result = verdict();
    report = m_report;
    return result;
}

// Names come from outside: a control byte must not reach the terminal.
void Check::line(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; }, '?');
    m_report += text + "\n";
}

void Check::pathLine(const std::string& what, const std::string& path) {
    std::string text = "  " + what + ": " + path;
    if (const std::string resolved = platform().resolvedPath(path); resolved != path) {
        text += " -> " + resolved;
    }
    line(text + (platform().exists(path) ? "" : " (not there)"));
}

// False when nothing more can be told.
bool Check::settings() {
    line("settings");
    pathLine("file", install::settingsFile());
    Configuration* configuration = nullptr;
    if (Configuration::getInstance(&configuration) != 0) {
        return false;
    }
    settingLines(*configuration);
    return paths(*configuration);
}

void Check::settingLines(const Configuration& configuration) {
    IniFile ini;
    (void)ini.load(install::settingsFile()); // not there, or just read by the configuration
    const auto written = [&ini](const char* key) {
        return ini.find(Configuration::g_section, key).value_or(std::string_view());
    };
    for (const Configuration::NumericSetting& setting : Configuration::numericSettings()) {
        const int32_t value = configuration.valueOf(setting);
        line(std::string("  ") + setting.key + " = " + std::to_string(value) + " " + setting.unit +
             " (" + sourceOf(value, written(setting.key)) + ")");
    }
    for (const char* const key : {"memoryDiskPath", "urlStatRoot"}) {
        const std::string text(written(key));
        line(std::string("  ") + key + " = " + (text.empty() ? "(default)" : text + " (set)"));
    }
}

bool Check::paths(const Configuration& configuration) {
    line("paths");
    pathLine("program", platform().executablePath());
    if (!install::namedRoot().empty()) {
        pathLine("root", install::namedRoot());
    }
    std::string accountFile;
    if (AbstractNewData::getAccountFilePath(accountFile) != 0) {
        return false;
    }
    pathLine("account file", accountFile);
    pathLine("log files", install::logDirectory());
    if (getDataPath(m_dataPath) != 0) {
        return false;
    }
    directories(configuration);
    pathLine("log data", m_dataPath);
    pathLine("statistics root", m_urlStatRoot);
    pathLine("memory disk", m_memoryDisk);
    return true;
}

void Check::directories(const Configuration& configuration) {
    m_urlStatRoot = configuration.urlStatRoot();
    if (m_urlStatRoot.empty()) {
        m_urlStatRoot = names::defaultStatRoot(m_dataPath);
    }
    m_memoryDisk = configuration.memoryDiskPath();
    if (m_memoryDisk.empty()) {
        m_memoryDisk = names::defaultMemoryDisk(m_dataPath);
    }
}

void Check::instance() const {
    std::unique_ptr<NamedEvent> held;
    if (platform().createNamedEvent(g_instanceName, held) == NamedEventResult::AlreadyExists) {
        LOG_ERROR("the service is running");
        return;
    }
    if (m_urlStatRoot.empty()) {
        return;
    }
    const std::pair<std::string, std::string> locks[] = {
        {m_urlStatRoot, names::lockFile(m_urlStatRoot)},
        {m_memoryDisk, memoryDiskMarker(m_memoryDisk)}};
    for (const auto& [directory, lock] : locks) {
        const LockResult result = platform().probeLock(lock);
        if (result == LockResult::HeldByAnother) {
            LOG_ERROR("the service is running on %s", directory.c_str());
        } else if (platform().probeSharedLock(lock) == LockResult::HeldByAnother) {
            LOG_ERROR("units of the service's work are running on %s", directory.c_str());
        } else if (result == LockResult::Failed) {
            LOG_ERROR("lock %s fail, errno %d", lock.c_str(), errno);
        }
    }
}

void Check::guards() const {
    FileInfo info;
    if (platform().info(m_dataPath, info) != 0) {
        LOG_ERROR("log data %s cannot be found, errno %d", m_dataPath.c_str(), errno);
    } else if (!info.isDirectory) {
        LOG_ERROR("log data %s is no directory", m_dataPath.c_str());
    }
    // All of them, whatever the first one says: each reports for itself.
    (void)mayBeUrlStatRoot(m_urlStatRoot, m_dataPath);
    (void)mayBeMemoryDisk(m_memoryDisk, m_dataPath, m_urlStatRoot);
    (void)leavesRoomForNames(m_memoryDisk, m_urlStatRoot);
}

void Check::space() {
    uint32_t available = 0;
    if (Util::getAvailableSpace(m_urlStatRoot, available) != 0) {
        return;
    }
    line("  free for statistics: " + std::to_string(available) + " MiB");
    if (available <= g_minFreeSpaceMiB) {
        LOG_ERROR("space not enough, more than %u MiB must be free on the volume of %s",
                  g_minFreeSpaceMiB, m_urlStatRoot.c_str());
    }
}

void Check::accounts() {
    std::vector<std::string> all;
    // What fails here has reported itself, and the verdict counts the reports.
    if (AbstractNewData::getAllAccounts(all) != 0) {
        return;
    }
    line("accounts: " + std::to_string(all.size()) +
         (all.empty() ? ", the service waits for a first one" : ""));
    std::ranges::for_each(all, [this](const std::string& path) { account(path); });
}

void Check::account(const std::string& path) {
    AllNodes nodes;
    std::vector<std::string> devices;
    if (nodes.getAllDevice(path, &devices) != 0 || nodes.getAllNews(path) != 0) {
        return;
    }
    std::set<std::string> dates;
    for (const std::string& node : nodes.newNodes()) { // .../DATE/A
        dates.emplace(names::lastComponent(names::parentOf(node)));
    }
    const std::string range = dates.empty() ? "" : ", " + *dates.begin() + " to " + *dates.rbegin();
    line("  " + path + ": devices " + std::to_string(devices.size()) + ", dates " +
         std::to_string(dates.size()) + range);
}

// "E:FUNCTION LINE TEXT" -> "TEXT"
std::string withoutPlace(const std::string& error) {
    const size_t text = error.find(' ', error.find(' ') + 1) + 1;
    return error.substr(text, error.find_last_not_of('\n') + 1 - text);
}

int Check::verdict() {
    const std::vector<std::string>& errors = m_platform.errors();
    line(errors.empty() ? "nothing is wrong" : "wrong: " + std::to_string(errors.size()));
    std::ranges::for_each(errors,
                          [this](const std::string& error) { line("  " + withoutPlace(error)); });
    return errors.empty() ? 0 : 1;
}

} // namespace

int checkSetup(std::string& report) {
    reportErrorsToStderr();
    return Check().run(report);
}

} // namespace kestrine
