// A spill of a full map: the list of its records, the choice of those that stay, and the file of
// the others.
#include "aggregate/url_hash_map.h"
#include "codecs.h"
#include "cycle/spill_writer.h"
#include "hosts.h"
#include "measure.h"
#include "rows.h"
#include "storage/url_file.h"
#include "tree/names.h"

#include <algorithm>
#include <random>

namespace kestrine::bench {

namespace {

// A map, and where its spills go.
class Spill {
public:
    explicit Spill(const Run& run)
        : m_settings(run.settings), m_hosts(makeHosts(run.hosts)), m_diskFiles(run.settings),
          m_writer(run.settings, m_memoryFiles, m_diskFiles) {
        std::ranges::shuffle(m_hosts, std::mt19937_64(1)); // as hosts come in logs
    }

    // CPU seconds of one spill, whose file stays until `clear`.
    double measure() {
        for (const Host& host : m_hosts) {
            require(m_map.insert(host.view()) == 0, "insert");
        }
        m_writer.openDate(g_account, m_status);
        const double seconds = cpuOf([this] { spill(); });
        m_map.clear();
        require(m_memoryFiles.lastGroupSize() == 1, "spill into one file");
        return seconds;
    }
    void clear() { m_writer.dropDate(); }

    [[nodiscard]] std::vector<Block> exported() {
        const int32_t number = m_memoryFiles.nextMemoryDiskNumber() + 1;
        require(measure() > 0, "spill");
        std::vector<Block> records = recordsOf(blocksOf(names::memoryDiskFile(
            m_settings.memoryDiskPath(), names::accountOf(g_account), m_status.date(), number)));
        clear();
        return records;
    }

private:
    // What UrlStat does with a map that has reached its budget.
    void spill() {
        PageArray<KeyedRecord> list;
        require(m_map.list(list) == 0, "list the records");
        const auto percent = static_cast<size_t>(100 - m_settings.exportPersent());
        const Spared spared = Spared::choose(list.span(), list.size() * percent / 100);
        const auto rest = std::remove_if(list.data(), list.data() + list.size(),
                                         [&spared](const KeyedRecord& record) {
                                             return spared.holds(record.key, record.visits);
                                         });
        require(m_writer.writeRecords(m_map, {list.data(), rest}) == 0, "write the records");
        list.release();
        require(m_map.retain(spared) == 0, "retain the rest");
    }

    const Configuration& m_settings;
    std::vector<Host> m_hosts;
    const DayStatus m_status = someStatus();
    UrlHashMap m_map;
    MemFileList m_memoryFiles;
    DiskTempFileList m_diskFiles;
    SpillWriter m_writer;
};

void encodeAndWrite(const Codec& codec, const std::vector<Block>& records,
                    const std::string& path) {
    UrlFile file;
    require(file.open(path, OpenMode::Truncate) == 0, "open a file");
    for (const Block& block : records) {
        require(file.writeBlockData(codec.encoded(block.bytes)) == 0, "write a block");
    }
    require(file.close() == 0, "close a file");
}

} // namespace

void spillRows(const Run& run) {
    Spill spill(run);
    const std::vector<Block> exported = spill.exported();
    const auto measured = [&spill] {
        const double seconds = spill.measure();
        spill.clear();
        return seconds;
    };
    std::vector<Reference> references;
    for (const Codec& codec : codecs()) {
        if (&codec != &codecs().front() && codec.encoder == codecs().front().encoder) {
            continue;
        }
        const auto work = [&] { encodeAndWrite(codec, exported, run.directory + "/exported"); };
        references.push_back({"encoding (" + codec.encoder + ") and writing what it exports",
                              [work] { return cpuOf(work); }});
    }
    printRatios(run.rounds,
                "spill of " + std::to_string(run.settings.exportPersent()) + " % of " +
                    std::to_string(run.hosts) + " hosts",
                measured, references);
}

} // namespace kestrine::bench
