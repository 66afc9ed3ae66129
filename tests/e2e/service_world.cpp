#include "service_world.h"

#include "frame/log.h"
#include "worldgen/install.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <thread>

namespace kestrine::test {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds g_retryPause{200};
constexpr int g_retries = 3000;

// The files of the tree are read with the service's library, whose reports nobody wants to see.
class Quiet : public testing::Environment {
public:
    void SetUp() override { reportErrorsToStderr(); }
};
[[maybe_unused]] const auto* const g_quiet = testing::AddGlobalTestEnvironment(new Quiet);

Settings merged(Settings settings, const Settings& more) {
    for (const auto& [key, value] : more) {
        std::erase_if(settings, [&name = key](const auto& line) { return line.first == name; });
        settings.emplace_back(key, value);
    }
    return settings;
}

testing::AssertionResult failure(const std::string& what, const ServiceProcess& service) {
    return testing::AssertionFailure() << what << "; " << service.tail();
}

} // namespace

worldgen::WorldSettings smallWorld(uint64_t visits) {
    worldgen::WorldSettings settings;
    settings.visits = visits;
    settings.hosts = 1500;
    settings.longHosts = 12;
    settings.filesPerNode = 2;
    settings.blocksPerFile = 2;
    settings.devices = 1;
    settings.firstDate = 20121229;
    settings.days = 3;
    settings.longNodeFiles = 0;
    settings.threads = 1;
    return settings;
}

worldgen::WorldSettings tinyWorld(uint64_t visits, int firstDate, int days) {
    worldgen::WorldSettings settings = smallWorld(visits);
    settings.accounts = 1;
    settings.firstDate = firstDate;
    settings.days = days;
    return settings;
}

Lines errorLines(const ServiceProcess& service) {
    Lines errors = service.lines();
    std::erase_if(errors, [](const std::string& line) {
        return !line.starts_with("E:") || line.find("cannot find </_f> in") != std::string::npos;
    });
    return errors;
}

std::set<std::string> namesBelow(const std::string& directory) {
    std::set<std::string> names;
    std::error_code missing;
    for (const auto& entry : fs::recursive_directory_iterator(directory, missing)) {
        if (!entry.is_directory()) {
            names.insert(entry.path().generic_string().substr(directory.size() + 1));
        }
    }
    return names;
}

ServiceWorld::ServiceWorld(Settings settings)
    : m_settings(
          merged({{"sleepTime", "1"}, {"daycrcsortInterval", "1"}, {"weekmoncrcsortInterval", "1"}},
                 settings)),
      m_world(m_dir.path()) {}

void ServiceWorld::generate(worldgen::WorldSettings settings) {
    settings.seed = m_seed++;
    settings.install.urlstat = m_settings;
    m_expected.add(m_world.generate(settings));
    installProgram();
}

void ServiceWorld::append(worldgen::WorldSettings settings) {
    settings.seed = m_seed++;
    m_expected.add(m_world.append(settings));
}

void ServiceWorld::makeAccounts(const std::vector<std::string>& names) {
    worldgen::InstallSettings settings;
    settings.urlstat = m_settings;
    worldgen::writeInstall(m_dir.path(), names, settings);
    installProgram();
}

void ServiceWorld::installProgram() {
    fs::copy_file(KESTRINE_PROGRAM, program());
}

std::string ServiceWorld::program() const {
    return programDir() + "/" + fs::path(KESTRINE_PROGRAM).filename().string();
}

fs::path ServiceWorld::node(std::string_view account, int device, int date) const {
    return worldgen::dateDir(m_dir.path(), account, device, date);
}

void ServiceWorld::save() {
    fs::copy(m_dir / "data", m_dir / "saved", fs::copy_options::recursive);
    m_saved = m_expected;
}

void ServiceWorld::restore() {
    removeTree(m_dir / "data");
    fs::copy(m_dir / "saved", m_dir / "data", fs::copy_options::recursive);
    m_expected = m_saved;
}

void ServiceWorld::configure(const Settings& settings) {
    std::string text = "[urlstat]\n";
    for (const auto& [key, value] : merged(m_settings, settings)) {
        text += key + "=" + value + "\n";
    }
    worldgen::writeFile(worldgen::urlstatIniPath(m_dir.path()), text);
}

std::unique_ptr<ServiceProcess> ServiceWorld::start(const std::vector<std::string>& arguments) {
    for (int tries = 0;; ++tries) {
        auto service = std::make_unique<ServiceProcess>(program(), arguments, programDir());
        if (service->waitForLine("urlstat start running ...") ||
            countLines(service->lines(), "another instance is running") == 0 ||
            tries == g_retries) {
            return service;
        }
        (void)service->wait();
        service.reset();
        removeTree(programDir() + "/log"); // as if this start had not been tried
        std::this_thread::sleep_for(g_retryPause);
    }
}

testing::AssertionResult ServiceWorld::stop(ServiceProcess& service, StopRequest request) {
    service.request(request);
    const int code = service.wait();
    const Lines lines = service.lines();
    const std::string signal =
        std::string("Recv signal:") + (request == StopRequest::Interrupt ? "2" : "15") + " ... ";
    if (code != 0 || countLines(lines, "Recv signal:") != 1 || countLines(lines, signal) != 1 ||
        lines.back().find(" exit normally") == std::string::npos) {
        return failure("no orderly end, exit code " + std::to_string(code), service);
    }
    if (fs::exists(logData() + "/_memdisk")) {
        return failure("the memory disk is still there", service);
    }
    return testing::AssertionSuccess();
}

testing::AssertionResult ServiceWorld::onePass() {
    const auto service = start();
    if (!service->waitForPause()) {
        return failure("no end of the first pass", *service);
    }
    const testing::AssertionResult stopped = stop(*service);
    const Lines errors = errorLines(*service);
    if (stopped && !errors.empty()) {
        return failure("error line: " + errors.front(), *service);
    }
    return stopped;
}

testing::AssertionResult ServiceWorld::matches(bool newDayFilesKept) const {
    TreeText found = readTree(statRoot(), namesBelow(statRoot()), logData());
    std::erase_if(found, [=](const auto& file) {
        return newDayFilesKept && file.first.find("/new/") != std::string::npos;
    });
    const std::string text = differences(m_expected.tree(), found);
    return text.empty() ? testing::AssertionSuccess() : testing::AssertionFailure() << text;
}

std::vector<std::string> ServiceWorld::setAside() const {
    static const std::regex shape(".*/_urlstat/debug/.*?([^/]+/)[^/_]*_([^/]+)");
    std::vector<std::string> names;
    for (const auto& [name, content] : m_dir.tree()) {
        if (std::smatch parts; std::regex_match(name, parts, shape)) {
            names.push_back(parts.str(1) + parts.str(2));
        }
    }
    return names;
}

} // namespace kestrine::test
