#include "sim_world.h"

#include "frame/configuration.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "service/work_thread.h"
#include "support/temp_dir.h"
#include "tree/names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <numeric>

namespace kestrine::test {

namespace {

constexpr const char* g_settings = "config/urlstat.ini";
constexpr int64_t g_now = 1386000000; // seconds since 1970, early in December 2013
constexpr uint32_t g_pauseStep = 500; // milliseconds, which nothing else sleeps
constexpr uint32_t g_pauseSteps = 3;  // of sleepTime=1
constexpr size_t g_errorsShown = 12;

constexpr std::string_view g_devices = "/devid_";
constexpr std::string_view g_newDevices = "/devid_5";

// What lies on the real disk and not in `known`, as /w/...
SimWorld::Files filesOf(const TempDir& directory, const SimWorld::Files& known) {
    SimWorld::Files files;
    for (const auto& [name, bytes] : directory.tree()) {
        if (!name.ends_with('/') && !known.contains("/w/" + name)) {
            files["/w/" + name] = {bytes.begin(), bytes.end()};
        }
    }
    return files;
}

// The same nodes under numbers of their own.
std::string renumbered(std::string path) {
    const size_t at = path.find(g_devices);
    return at == std::string::npos ? path : path.replace(at, g_devices.size(), g_newDevices);
}

} // namespace

int stepOf() {
    const char* const step = std::getenv("KESTRINE_SWEEP_STEP");
    return step != nullptr ? std::max(std::atoi(step), 1) : 1;
}

int firstOf() {
    static int calls = 0;
    const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
    const auto step = static_cast<size_t>(stepOf());
    return 1 +
           static_cast<int>((std::hash<std::string>()(test) + static_cast<size_t>(calls++)) % step);
}

worldgen::WorldSettings smallLogs(uint64_t visits, uint32_t hosts, int days) {
    worldgen::WorldSettings settings;
    settings.visits = visits;
    settings.hosts = hosts;
    settings.types = 2;
    settings.longHosts = 2;
    settings.accounts = 1;
    settings.devices = 2;
    settings.firstDate = 20131130;
    settings.days = days;
    settings.filesPerNode = 1;
    settings.longNodeFiles = 0;
    settings.blockBytes = 16384;
    settings.threads = 1;
    return settings;
}

SimWorld::SimWorld(worldgen::WorldSettings settings, int rounds, bool newNodes)
    : FakeClockPlatform(systemPlatform()) {
    seconds = g_now;
    local = LocalTime{2013, 12, 2, 16, 0, 0};
    freeBytes = uint64_t{1} << 40;
    executable = "/w/install/ml/kestrine";
    settings.install.dataPath = "/w/data";
    const TempDir directory;
    worldgen::World world(directory.path());
    Files known;
    for (int round = 0; round < rounds; ++round) {
        settings.seed = static_cast<uint64_t>(7 + round);
        const auto totals = round == 0 ? world.generate(settings) : world.append(settings);
        addLast(filesOf(directory, known), totals);
        known.insert(logs(round).begin(), logs(round).end());
    }
    if (newNodes) {
        const TempDir others;
        settings.seed = static_cast<uint64_t>(7 + rounds);
        ++settings.days;
        worldgen::Totals totals = worldgen::World(others.path()).generate(settings);
        std::map<std::string, worldgen::NodeEnd> nodes;
        for (const auto& [path, end] : totals.nodes) {
            nodes[renumbered(path)] = end;
        }
        totals.nodes = nodes;
        Files files;
        for (auto& [path, bytes] : filesOf(others, {})) {
            files[renumbered(path)] = bytes;
        }
        addLast(files, totals);
    }
    disk.strict = true;
    put(logs(0));
    const std::string text = "[urlstat]\nsleepTime=1\nmaxHashMemory=1\nexportPersent=60\n"
                             "daycrcsortInterval=1\nweekmoncrcsortInterval=1\n"
                             "memoryDiskSize=1025\nmemoryDiskPath=" +
                             std::string(g_memoryDisk) + "\nurlStatRoot=" + g_statRoot + "\n";
    disk.files[g_settings] = {text.begin(), text.end()};
}

void SimWorld::addLast(const Files& files, const worldgen::Totals& totals) {
    m_totals += totals;
    Round& round = m_rounds[static_cast<int>(m_rounds.size())];
    round = {files, {}, expectedTree(m_totals)};
    for (const auto& [name, file] : expectedFiles(totals)) {
        round.own[name] = file.records;
    }
}

SimWorld::~SimWorld() {
    Configuration::resetInstance();
    g_isRunning = 1;
}

void SimWorld::put(const Files& added) {
    for (const auto& [path, bytes] : added) {
        disk.files[path] = bytes;
        disk.times[path] = *seconds;
        for (size_t end = path.rfind('/'); end != 0; end = path.rfind('/', end - 1)) {
            disk.directories.insert(path.substr(0, end));
        }
    }
}

void SimWorld::addRound() {
    if (m_rounds.contains(m_round + 1)) {
        put(logs(++m_round));
    }
}

// A key that is repeated has the value that stands first.
void SimWorld::configure(const std::string& key, const std::string& value) {
    const std::string line = key + "=" + value + "\n";
    MemoryDisk::Bytes& bytes = disk.files[g_settings];
    bytes.insert(std::ranges::find(bytes, '\n') + 1, line.begin(), line.end());
}

End SimWorld::run(const Plan& plan) {
    return run(plan, [] {
        Configuration* settings = nullptr;
        if (Configuration::getInstance(&settings) != 0) {
            return -1;
        }
        WorkThread workThread(*settings);
        return workThread.init() == 0 ? workThread.run() : -1;
    });
}

End SimWorld::run(const Plan& plan, const std::function<int()>& program) {
    FailingPlatform machine(plan.failAt, plan.mode, disk, plan.calls);
    machine.error = plan.error;
    machine.concerns = [&plan](const std::string& path) {
        return !plan.only.empty() ? path == plan.only
                                  : path.starts_with("/w/stat") || path.starts_with("/w/mem") ||
                                        path.starts_with("/w/data");
    };
    machine.onCall = plan.onCall;
    machine.onKill = [] { g_isRunning = 0; }; // so that it comes home
    const ScopedPlatform scope(machine);
    Configuration::resetInstance();
    m_plan = &plan;
    m_pauseSteps = 0;
    m_startUpOver = false;
    m_lines.clear();
    slept = 0;
    ticks = 1000;
    g_isRunning = 1;
    const int result = program();
    g_isRunning = 1;
    m_plan = nullptr;
    if (m_startUpOver) {
        return End::StartUpOver;
    }
    if (plan.mode == FailingPlatform::Mode::Kill && machine.failed()) {
        return End::Killed;
    }
    return result == 0 ? End::Normal : End::Failed;
}

// Between two passes the service sleeps in steps.
void SimWorld::sleep(uint32_t milliseconds) {
    FakeClockPlatform::sleep(milliseconds);
    if (m_plan == nullptr || milliseconds != g_pauseStep || ++m_pauseSteps % g_pauseSteps != 0) {
        return;
    }
    const auto pass = static_cast<int>(m_pauseSteps / g_pauseSteps);
    if (pass >= m_plan->passes) {
        g_isRunning = 0;
        return;
    }
    if (m_plan->inPause) {
        m_plan->inPause(pass);
    } else {
        addRound();
    }
}

// First asked for when the start-up check is over.
uint32_t SimWorld::tickCount() {
    if (m_plan != nullptr && m_plan->startUpOnly && !stopRequested()) {
        m_startUpOver = true;
        g_isRunning = 0;
    }
    return FakeClockPlatform::tickCount();
}

void SimWorld::writeConsole(std::string_view text, bool) {
    if (std::getenv("KESTRINE_SWEEP_LOG") != nullptr) {
        std::cout << text;
    }
    m_lines.emplace_back(text);
}

std::string SimWorld::errors() const {
    const size_t shown = std::min(m_lines.size(), g_errorsShown);
    return std::accumulate(m_lines.end() - static_cast<ptrdiff_t>(shown), m_lines.end(),
                           std::string());
}

bool SimWorld::reported(std::string_view text) const {
    return std::ranges::any_of(
        m_lines, [text](const std::string& line) { return line.find(text) != std::string::npos; });
}

TreeText SimWorld::tree() {
    const ScopedPlatform scope(disk);
    std::set<std::string> names = disk.names(g_statRoot);
    std::erase_if(names, [](const std::string& name) {
        return name.ends_with('/') || names::newDayNumber(name) >= 0;
    });
    return readTree(g_statRoot, names, g_logData);
}

std::string SimWorld::wrong() {
    return differences(m_rounds.at(m_round).expected, tree());
}

std::set<std::string> SimWorld::setAside() const {
    std::set<std::string> names = disk.names(g_statRoot + std::string("/debug"));
    std::erase_if(names, [](const std::string& name) { return name.ends_with('/'); });
    return names;
}

SimWorld::State SimWorld::save() const {
    return {disk.files, disk.directories, disk.times, m_round};
}

void SimWorld::restore(const State& state) {
    disk.files = state.files;
    disk.directories = state.directories;
    disk.times = state.times;
    m_round = state.round;
    disk.smallRoom.reset();
    seconds = g_now;
}

uint64_t SimWorld::fingerprint() const {
    std::string all = std::to_string(m_round);
    for (const std::string& name : disk.names(g_statRoot)) {
        if (name.find("/diskTemp/") != std::string::npos) {
            continue;
        }
        const std::string path = g_statRoot + ("/" + name);
        all += "\n" + name + "\n";
        if (const auto file = disk.files.find(path); file != disk.files.end()) {
            const auto time = disk.times.find(path);
            all += std::to_string(time == disk.times.end() ? 0 : time->second) + "\n";
            all.append(file->second.begin(), file->second.end());
        }
    }
    return std::hash<std::string>()(all);
}

Report::~Report() {
    std::cout << "tried " << m_tried << " cases, " << m_wrong << " wrong\n";
}

void Report::add(const std::string& name, const std::string& wrong) {
    constexpr int mostShown = 5;
    ++m_tried;
    if (!wrong.empty() && ++m_wrong <= mostShown) {
        ADD_FAILURE() << name << ": " << wrong << "\nlast errors:\n" << m_world.errors();
    }
}

} // namespace kestrine::test
