#include "worldgen/node_writer.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

#include "worldgen/dat_file.h"
#include "worldgen/hosts.h"
#include "worldgen/random.h"
#include "worldgen/record_maker.h"

namespace worldgen {

namespace {

constexpr std::uint32_t steadyRanks = 64; // hosts that lead on every day and in every account
constexpr std::size_t recordRoom = 4096;  // no record is longer
constexpr std::uint32_t blockTypeCount = 7;

// What all threads read.
struct Source {
    Source(std::filesystem::path rootPath, const WorldSettings& world)
        : root(std::move(rootPath)), settings(world),
          hosts(world.hosts, world.types, world.longHosts), ranks(world.hosts, world.zipfExponent) {
    }

    std::filesystem::path root;
    const WorldSettings& settings;
    HostCatalog hosts;
    ZipfTable ranks;
    ContentPool contents;
};

struct FileResult {
    Sums sums;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> hosts; // index, visits
};

// Turns ranks into hosts. The leading ranks are the same hosts everywhere; behind them each account
// has its own order, which moves on a little every day, so that days differ in their hosts.
class Taste {
public:
    Taste(const HostCatalog& hosts, const NodePlan& node) {
        m_moving = hosts.size() > steadyRanks ? hosts.size() - steadyRanks : 0;
        if (m_moving != 0) {
            int day = node.date / 10000 * 372 + node.date / 100 % 100 * 31 + node.date % 100;
            std::uint64_t daily = m_moving / 40 + 1;
            m_shift = static_cast<std::uint32_t>(
                (hashText(node.account) % m_moving + static_cast<unsigned>(day) * daily) %
                m_moving);
        }
    }

    std::uint32_t host(std::uint32_t rank) const {
        if (rank < steadyRanks) {
            return rank;
        }
        std::uint32_t moved = rank - steadyRanks + m_shift;
        return steadyRanks + (moved < m_moving ? moved : moved - m_moving);
    }

private:
    std::uint32_t m_moving = 0;
    std::uint32_t m_shift = 0;
};

// Decides which blocks stay uncompressed: evenly spread, the first one by chance.
class RawShare {
public:
    RawShare(std::uint32_t percent, std::uint32_t start) : m_percent(percent), m_sum(start) {}

    bool next() {
        m_sum += m_percent;
        bool raw = m_sum >= 100;
        m_sum -= raw ? 100 : 0;
        return raw;
    }

private:
    std::uint32_t m_percent;
    std::uint32_t m_sum; // below 100
};

// Writes one file after the other; one object for each thread.
class FileMaker {
public:
    explicit FileMaker(const Source& source) : m_source(source), m_visits(source.hosts.size()) {
        m_raw.reserve(source.settings.blockBytes);
    }

    FileResult make(const NodePlan& node, std::size_t fileIndex);

private:
    // Fills m_raw with the records of one block and returns the number of visits among them.
    std::uint64_t fillBlock(RecordMaker& records, const Taste& taste, Random& random,
                            std::uint64_t visits);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> takeHosts();

    const Source& m_source;
    BlockPacker m_packer;
    std::string m_raw;
    std::vector<std::uint32_t> m_visits; // of each host in this file
    std::vector<std::uint32_t> m_touched;
    std::uint64_t m_skipped = 0;
};

FileResult FileMaker::make(const NodePlan& node, std::size_t fileIndex) {
    const WorldSettings& settings = m_source.settings;
    int number = node.firstFile + static_cast<int>(fileIndex);
    std::uint64_t seed = mix64(nodeSeed(settings.seed, node) ^ static_cast<unsigned>(number + 1));
    Random random(seed);
    RecordMaker records(m_source.hosts, m_source.contents, node.account, node.device, ~seed);
    Taste taste(m_source.hosts, node);
    RawShare rawShare(settings.rawPercent, random.below(100));
    DatWriter writer(dateDir(m_source.root, node.account, node.device, node.date), number);

    FileResult result;
    m_skipped = 0;
    std::uint64_t left = node.visits[fileIndex];
    std::uint64_t perBlock = left / settings.blocksPerFile + 1;
    while (left != 0) {
        left -= fillBlock(records, taste, random, std::min(left, perBlock));
        writer.write(m_packer.pack(m_raw, !rawShare.next(), random.below(blockTypeCount)));
        result.sums.rawBytes += m_raw.size();
    }
    result.sums.visits = node.visits[fileIndex];
    result.sums.skipped = m_skipped;
    result.sums.storedBytes = writer.close();
    result.sums.files = 1;
    result.hosts = takeHosts();
    return result;
}

std::uint64_t FileMaker::fillBlock(RecordMaker& records, const Taste& taste, Random& random,
                                   std::uint64_t visits) {
    const WorldSettings& settings = m_source.settings;
    std::uint64_t done = 0;
    m_raw.clear();
    while (done < visits && m_raw.size() + recordRoom <= settings.blockBytes) {
        std::uint32_t host = taste.host(m_source.ranks.draw(random));
        if (random.below(1000 + settings.skipPerMille) < settings.skipPerMille) {
            records.skipped(m_raw, host);
            ++m_skipped;
            continue;
        }
        records.visit(m_raw, host);
        if (m_visits[host]++ == 0) {
            m_touched.push_back(host);
        }
        ++done;
    }
    return done;
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> FileMaker::takeHosts() {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> hosts;
    hosts.reserve(m_touched.size());
    for (std::uint32_t host : m_touched) {
        hosts.emplace_back(host, m_visits[host]);
        m_visits[host] = 0;
    }
    m_touched.clear();
    return hosts;
}

// Adds up the results of the files, in whatever order the threads bring them.
class Collector {
public:
    explicit Collector(const Source& source) : m_source(source) {}

    void add(const NodePlan& node, int number, const FileResult& result) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_totals.accounts[node.account][node.date].sums += result.sums;
        NodeEnd& end = m_totals.nodes[node.account + "/devid_" + std::to_string(node.device) + "/" +
                                      std::to_string(node.date)];
        if (number > end.file) {
            end = {number, result.sums.storedBytes};
        }
        Day& day = m_days[{node.account, node.date}];
        if (m_source.settings.hostMaps) {
            for (const auto& [host, visits] : result.hosts) {
                day.visits[host] += visits;
            }
            return;
        }
        day.seen.resize(m_source.hosts.size());
        for (const auto& [host, visits] : result.hosts) {
            day.seen[host] = true;
        }
    }

    Totals finish() {
        for (auto& [place, day] : m_days) {
            DayTotals& totals = m_totals.accounts[place.first][place.second];
            for (const auto& [host, visits] : day.visits) {
                totals.hosts[std::string(m_source.hosts.name(host))] = {visits,
                                                                        m_source.hosts.type(host)};
            }
            auto seen = std::count(day.seen.begin(), day.seen.end(), true);
            totals.distinctHosts = totals.hosts.size() + static_cast<std::uint64_t>(seen);
            day = Day{};
        }
        return std::move(m_totals);
    }

private:
    struct Day {
        std::unordered_map<std::uint32_t, std::uint64_t> visits; // with host maps
        std::vector<bool> seen;                                  // without
    };

    const Source& m_source;
    std::mutex m_mutex;
    Totals m_totals;
    std::map<std::pair<std::string, int>, Day> m_days;
};

// Hands the files to the threads, one by one.
class Crew {
public:
    Crew(const Source& source, const std::vector<NodePlan>& nodes)
        : m_source(source), m_nodes(nodes), m_collector(source) {
        for (std::size_t node = 0; node < nodes.size(); ++node) {
            for (std::size_t file = 0; file < nodes[node].visits.size(); ++file) {
                m_files.emplace_back(node, file);
            }
        }
    }

    Totals run(unsigned threadCount) {
        std::vector<std::thread> threads;
        for (unsigned i = 1; i < threadCount; ++i) {
            threads.emplace_back([this] { work(); });
        }
        work();
        for (std::thread& thread : threads) {
            thread.join();
        }
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
        return m_collector.finish();
    }

private:
    void work() {
        try {
            FileMaker maker(m_source);
            for (std::size_t i = m_next++; i < m_files.size(); i = m_next++) {
                const NodePlan& node = m_nodes[m_files[i].first];
                std::size_t file = m_files[i].second;
                m_collector.add(node, node.firstFile + static_cast<int>(file),
                                maker.make(node, file));
            }
        } catch (...) {
            std::lock_guard<std::mutex> lock(m_failureMutex);
            m_failure = std::current_exception();
            m_next = m_files.size();
        }
    }

    const Source& m_source;
    const std::vector<NodePlan>& m_nodes;
    Collector m_collector;
    std::vector<std::pair<std::size_t, std::size_t>> m_files; // node, file of it
    std::atomic<std::size_t> m_next = 0;
    std::mutex m_failureMutex;
    std::exception_ptr m_failure;
};

} // namespace

std::uint64_t nodeSeed(std::uint64_t seed, const NodePlan& node) {
    std::uint64_t place =
        (static_cast<std::uint64_t>(node.device) << 32) + static_cast<std::uint64_t>(node.date);
    return mix64(mix64(mix64(seed + 1) ^ hashText(node.account)) ^ place);
}

Totals writeNodes(const std::filesystem::path& root, const WorldSettings& settings,
                  const std::vector<NodePlan>& nodes) {
    Source source(root, settings);
    unsigned threads = settings.threads != 0 ? settings.threads
                                             : std::max(1u, std::thread::hardware_concurrency());
    return Crew(source, nodes).run(threads);
}

} // namespace worldgen
