#include "support.h"

#include "storage/url_file.h"
#include "storage/url_key.h"
#include "worldgen/dat_file.h"
#include "worldgen/record_maker.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>

namespace kestrine::bench {

namespace {

constexpr uint32_t g_blockBytes = 1048576;
constexpr int g_files = 4;
constexpr int g_blocksPerFile = 16;
constexpr uint32_t g_types = 4;
constexpr uint32_t g_hosts = 1000000;

class TempDir {
public:
    TempDir() {
        const std::filesystem::path base = std::filesystem::temp_directory_path();
        do {
            m_path = (base / ("kestrine-bench-" + std::to_string(std::random_device()())))
                         .generic_string();
        } while (!std::filesystem::create_directory(m_path));
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

LogNode makeLogNode(uint32_t hostCount, bool compressed) {
    const worldgen::HostCatalog catalog(hostCount, g_types, 0);
    const worldgen::ContentPool pool;
    const worldgen::ZipfTable popularity(hostCount, 1.0);
    worldgen::Random random(1);
    worldgen::RecordMaker maker(catalog, pool, "bench", 1, 1);
    worldgen::BlockPacker packer;
    const std::string root =
        directory() + "/" + std::to_string(hostCount) + (compressed ? "-packed" : "-raw");
    const std::filesystem::path date = worldgen::dateDir(root, "bench", 1, 20240301);

    LogNode node;
    node.account = date.parent_path().parent_path().generic_string();
    node.typeDirectory = (date / "A").generic_string();
    node.blockBytes = g_blockBytes;
    for (int number = 0; number < g_files; ++number) {
        worldgen::DatWriter file(date, number);
        for (int i = 0; i < g_blocksPerFile; ++i) {
            std::string raw;
            std::string next;
            for (; raw.size() + next.size() <= g_blockBytes; ++node.records) {
                raw += next;
                next.clear();
                maker.visit(next, popularity.draw(random));
            }
            --node.records; // the last one did not fit
            const std::string& block = packer.pack(raw, compressed, 1);
            file.write(block);
            node.payloads.push_back(block.substr(worldgen::blockHeaderBytes));
            node.rawBytes += raw.size();
        }
        file.close();
    }
    return node;
}

std::vector<Host> makeHosts() {
    const worldgen::HostCatalog catalog(g_hosts, g_types, 0);
    std::vector<Host> hosts(g_hosts);
    for (uint32_t i = 0; i < g_hosts; ++i) {
        const std::string_view name = catalog.name(i);
        hosts[i] = {std::string(name), urlKey(asBytes(name)), 1 + g_hosts / (i + 1),
                    catalog.type(i)};
    }
    std::ranges::sort(hosts, {}, &Host::key);
    return hosts;
}

} // namespace

const std::string& directory() {
    static const TempDir temporary;
    return temporary.path();
}

const LogNode& logNode(uint32_t hostCount, bool compressed) {
    static std::map<std::pair<uint32_t, bool>, LogNode> nodes;
    const auto [place, added] = nodes.try_emplace({hostCount, compressed});
    if (added) {
        place->second = makeLogNode(hostCount, compressed);
    }
    return place->second;
}

const std::vector<Host>& hosts() {
    static const std::vector<Host> all = makeHosts();
    return all;
}

HostFile writeHostFile(const std::string& name, const std::vector<size_t>& indices) {
    HostFile result{directory() + "/" + name};
    UrlFile file;
    require(file.open(result.path, OpenMode::Truncate) == 0, "open a file for hosts");
    for (const size_t index : indices) {
        const UrlRecordView record = hosts()[index].view();
        require(file.writeOneRecord(record) == 0, "write a host");
        ++result.records;
        result.bytes += record.size();
    }
    DayStatus status = someStatus();
    status.setTotalCount(file.totalCount());
    require(file.writeStatus(status) == 0 && file.close() == 0, "finish a file of hosts");
    return result;
}

DayStatus someStatus() {
    DayStatus status;
    status.entries().push_back({"log_data/bench/devid_1/20240301", 0, 28});
    return status;
}

ScopedSettings::ScopedSettings(const std::string& lines)
    : m_workingDirectory(std::filesystem::current_path()) {
    std::filesystem::create_directories(directory() + "/config");
    std::ofstream(directory() + "/config/urlstat.ini")
        << "[urlstat]\nurlStatRoot=" << directory() << "/root\nmemoryDiskPath=" << directory()
        << "/memdisk\n"
        << lines;
    std::filesystem::current_path(directory());
    Configuration::resetInstance();
}

ScopedSettings::~ScopedSettings() {
    std::filesystem::current_path(m_workingDirectory);
    Configuration::resetInstance();
}

const Configuration& loadedSettings() {
    Configuration* configuration = nullptr;
    require(Configuration::getInstance(&configuration) == 0, "load the settings");
    return *configuration;
}

void ScopedSettings::clear() {
    std::filesystem::remove_all(directory() + "/root");
    std::filesystem::remove_all(directory() + "/memdisk");
}

void require(bool good, const char* what) {
    if (!good) {
        std::fprintf(stderr, "cannot %s\n", what);
        std::exit(1);
    }
}

} // namespace kestrine::bench
