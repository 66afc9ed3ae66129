#include "sweep_world.h"
#include "frame/configuration.h"
#include "frame/run_flag.h"
#include "service/work_thread.h"
#include "storage/url_file.h"
#include "tree/names.h"
#include "worldgen/world.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace kestrine::test {

namespace fs = std::filesystem;

namespace {

constexpr uint64_t g_pauseMilliseconds = 1500; // of sleepTime=1
constexpr int g_crashExit = 99;
constexpr size_t g_workers = 2;

bool isFinished(const std::string& path) {
    const std::string_view name = names::lastComponent(path);
    return name == "daycrcsort" || name == "weekcrcsort" || name == "moncrcsort" ||
           name.ends_with(".top");
}

std::vector<std::string> linesOf(const std::string& path) {
    const std::string_view name = names::lastComponent(path);
    const bool day = name == "daycrcsort" || name.ends_with(".top");
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0 ||
        file.readStatus(day ? g_dayStatusType : g_weekMonStatusType) != 0) {
        return {"unreadable"};
    }
    std::vector<std::string> lines;
    UrlRecordView record;
    int ret = 0;
    while ((ret = file.readOneRecord(record)) == 0) {
        lines.push_back(std::to_string(record.key) + " " + std::to_string(record.count) + " " +
                        std::to_string(record.type) + " " + std::string(record.url));
    }
    if (ret != 1) {
        lines.emplace_back("damaged");
    }
    lines.push_back("/total " + std::to_string(file.statusTotal()));
    if (name == "daycrcsort") {
        for (const NodeEntry& node : file.dayStatus()->entries()) {
            lines.push_back(node.path + " " + std::to_string(node.fileNumber) + " " +
                            std::to_string(node.offset));
        }
    }
    return lines;
}

// A worker must not return into the test framework, not even by an exception.
std::string resultOf(const std::function<std::string(int, uint64_t)>& attempt, int worker,
                     uint64_t n) {
    try {
        return attempt(worker, n);
    } catch (const std::exception& error) {
        return std::to_string(n) + ": " + error.what();
    }
}

// The file system in memory, where there is one with room: the same result, much sooner.
fs::path fastDirectory() {
    constexpr uintmax_t room = uintmax_t{512} << 20;
    const char* const memory = "/dev/shm";
    std::error_code error;
    const fs::space_info space = fs::space(memory, error);
    return !error && space.available >= room && access(memory, W_OK) == 0
               ? fs::path(memory)
               : fs::temp_directory_path();
}

} // namespace

Snapshot snapshotOf(const std::string& urlStatRoot) {
    Snapshot all;
    for (const auto& entry : fs::recursive_directory_iterator(urlStatRoot)) {
        const std::string path = entry.path().generic_string();
        // New-day files that a kill kept from being deleted wait for the next month merge.
        if (entry.is_regular_file() && path.find("/debug/") == std::string::npos &&
            !path.ends_with("_backup") && names::newDayNumber(path) < 0) {
            all[path.substr(urlStatRoot.size())] =
                isFinished(path) ? linesOf(path) : std::vector<std::string>{"left over"};
        }
    }
    return all;
}

std::string difference(const Snapshot& wanted, const Snapshot& got) {
    for (const auto& [name, lines] : wanted) {
        const auto found = got.find(name);
        if (found == got.end()) {
            return name + " is missing";
        }
        for (size_t i = 0; i < std::max(lines.size(), found->second.size()); ++i) {
            const std::string want = i < lines.size() ? lines[i] : "nothing";
            const std::string have = i < found->second.size() ? found->second[i] : "nothing";
            if (want != have) {
                return name + ": wanted " + want + ", got " + have;
            }
        }
    }
    for (const auto& [name, lines] : got) {
        if (!wanted.contains(name)) {
            return name + " should not be there";
        }
    }
    return {};
}

std::vector<std::string> tryAll(uint64_t number,
                                const std::function<std::string(int worker, uint64_t n)>& attempt) {
    const TempDir reports;
    std::array<pid_t, g_workers> workers{};
    for (size_t worker = 0; worker < g_workers; ++worker) {
        workers[worker] = fork();
        if (workers[worker] == 0) {
            std::ofstream report(reports / std::to_string(worker));
            for (uint64_t n = worker; n < number; n += g_workers) {
                const std::string wrong = resultOf(attempt, static_cast<int>(worker), n);
                if (!wrong.empty()) {
                    report << wrong << std::endl;
                }
            }
            std::_Exit(0);
        }
    }
    std::vector<std::string> all;
    for (size_t worker = 0; worker < g_workers; ++worker) {
        int status = 0;
        waitpid(workers[worker], &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            all.emplace_back("a worker of the test died");
        }
        std::ifstream report(reports / std::to_string(worker));
        for (std::string line; std::getline(report, line);) {
            all.push_back(line);
        }
    }
    return all;
}

SweepWorld::SweepWorld(uint64_t visits, int dates) : m_directory(fastDirectory()) {
    worldgen::WorldSettings settings;
    settings.seed = 7;
    settings.visits = visits;
    settings.hosts = 60;
    settings.types = 2;
    settings.accounts = 1;
    settings.devices = 2;
    settings.firstDate = 20131130; // a Saturday, the last day of its month
    settings.days = dates;
    settings.filesPerNode = 1;
    settings.longNodeFiles = 0;
    settings.blockBytes = 16384;
    settings.threads = 1;
    worldgen::World world(m_directory.path());
    const worldgen::Totals first = world.generate(settings);
    for (const auto& [node, end] : first.nodes) {
        m_lastOfFirstRound[node] = end.file;
    }
    settings.seed = 8;
    const worldgen::Totals second = world.append(settings);
    m_visits = first.sum().visits + second.sum().visits;
}

std::string SweepWorld::directory(int place) const {
    return m_directory / ("place" + std::to_string(place));
}

std::string SweepWorld::urlStatRoot(int place) const {
    return directory(place) + "/stat";
}

void SweepWorld::clear(int place) const {
    removeTree(directory(place));
    removeTree(directory(place) + ".kept");
    fs::create_directories(directory(place) + "/config");
    writeSettings(place, {});
}

void SweepWorld::copy(int from, int to) const {
    removeTree(directory(to));
    fs::copy(directory(from), directory(to), fs::copy_options::recursive);
    writeSettings(to, {});
}

void SweepWorld::writeSettings(int place, const Settings& settings) const {
    std::ofstream(directory(place) + "/config/urlstat.ini")
        << "[urlstat]\nsleepTime=1\nmaxHashMemory=1\nexportPersent=60\n"
        << "daycrcsortInterval=" << settings.dayInterval << "\n"
        << "weekmoncrcsortInterval=" << settings.weekMonthInterval << "\n"
        << "memoryDiskSize=" << settings.memoryDiskSize << "\n"
        << "memoryDiskPath=" << directory(place) << "/mem/disk\n"
        << "urlStatRoot=" << urlStatRoot(place) << "\n";
}

SweepWorld::End SweepWorld::run(int place, const Run& run) const {
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("fork fail");
    }
    if (child == 0) {
        std::_Exit(serve(place, run));
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) == g_crashExit) {
        return End::Crashed;
    }
    switch (WEXITSTATUS(status)) {
    case 0:
        return End::Normal;
    case g_killedExit:
        return End::Killed;
    case g_startUpOverExit:
        return End::StartUpOver;
    default:
        return WEXITSTATUS(status) == 1 ? End::Failed : End::Crashed;
    }
}

// The child's whole life: what `main` does between start-up and end.
int SweepWorld::serve(int place, const Run& run) const noexcept {
    const int nothing = ::open("/dev/null", O_WRONLY);
    if (chdir(directory(place).c_str()) != 0 || dup2(nothing, STDOUT_FILENO) < 0 ||
        (run.prepare && !run.prepare())) {
        return g_crashExit;
    }
    alarm(60); // a hang is a crash
    FaultPlatform disk(directory(place) + "/", directory(place) + ".kept", run.plan);
    disk.executable = m_directory / "install/ml/kestrine";
    disk.smallDisk = directory(place) + "/mem/";
    disk.smallDiskRoom = run.memoryDiskRoom;
    bool secondRound = run.secondRound;
    disk.onSleep = [&] {
        if (disk.slept == g_pauseMilliseconds) {
            secondRound = true;
            if (run.inPause) {
                run.inPause();
            }
        }
        if (disk.slept >= (run.onePass ? 1 : 2) * g_pauseMilliseconds) {
            g_isRunning = 0;
        }
    };
    const std::string logs = m_directory / "data/log_data/";
    disk.hidden = [&](const std::string& path) {
        if (secondRound || !path.ends_with(".dat") || !path.starts_with(logs)) {
            return false;
        }
        const fs::path file(path);
        const std::string node =
            file.parent_path().parent_path().parent_path().generic_string().substr(logs.size());
        const auto last = m_lastOfFirstRound.find(node);
        return last == m_lastOfFirstRound.end() || std::stoi(file.stem()) > last->second;
    };
    std::ofstream calls;
    if (!run.callsFile.empty()) {
        calls.open(run.callsFile);
    }
    disk.onChange = [&](uint64_t number, const char* what) {
        if (calls.is_open()) {
            calls << number << " " << what << "\n";
        }
        if (run.atChange) {
            run.atChange(number);
        }
    };
    setPlatform(&disk);
    Configuration::resetInstance();
    Configuration* configuration = nullptr;
    if (Configuration::getInstance(&configuration) != 0) {
        return 1;
    }
    WorkThread workThread(*configuration);
    if (workThread.init() != 0) {
        return 1;
    }
    g_isRunning = 1;
    const int ret = workThread.run();
    calls.flush();
    return ret == 0 ? 0 : 1;
}

} // namespace kestrine::test
