#include "worldgen/world.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "worldgen/calendar.h"
#include "worldgen/dat_file.h"
#include "worldgen/node_writer.h"
#include "worldgen/random.h"

namespace worldgen {

namespace {

namespace fs = std::filesystem;

constexpr int firstDevice = 8; // so that numbers of one and of two digits meet in one account
constexpr std::string_view devicePrefix = "devid_";
constexpr std::uint64_t maxVisits = 1ull << 35; // keeps visits * weights within 64 bits

// The nodes of one account that exist: newest file number by device and date.
using AccountTree = std::map<int, std::map<int, int>>;

fs::path logData(const fs::path& root) {
    return root / "data" / "log_data";
}

void require(bool condition, const char* message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

void checkSettings(const WorldSettings& settings) {
    require(settings.visits <= maxVisits, "visits: at most 2^35");
    require(settings.filesPerNode > 0, "files of a node: at least 1");
    require(settings.blocksPerFile > 0, "blocks of a file: at least 1");
    require(settings.blockBytes >= 8192 && settings.blockBytes <= largestBlock,
            "block size: 8192 to 2097152");
    require(settings.rawPercent <= 100, "share of raw blocks: 0 to 100 per cent");
    require(settings.skipPerMille <= 900, "skipped records: 0 to 900 per mille");
}

void checkGenerate(const WorldSettings& settings) {
    require(settings.accounts > 0 || !settings.accountNames.empty(), "accounts: at least 1");
    require(settings.devices > 0, "devices: at least 1");
    require(settings.days > 0, "days: at least 1");
    require(isCalendarDate(settings.firstDate), "first date: no date");
}

// The decimal number that the text from `begin` to `end` is, or -1.
int numberIn(const std::string& text, std::size_t begin, std::size_t end) {
    if (begin >= end || end > text.size() || end - begin > 9) {
        return -1;
    }
    int number = 0;
    for (std::size_t i = begin; i < end; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return -1;
        }
        number = number * 10 + (text[i] - '0');
    }
    return number;
}

int wholeNumber(const std::string& text) {
    return numberIn(text, 0, text.size());
}

int newestFile(const fs::path& typeDir) {
    int newest = -1;
    for (const fs::directory_entry& directory : fs::directory_iterator(typeDir)) {
        if (!directory.is_directory() || wholeNumber(directory.path().filename().string()) < 0) {
            continue;
        }
        for (const fs::directory_entry& file : fs::directory_iterator(directory.path())) {
            if (file.path().extension() == ".dat") {
                newest = std::max(newest, wholeNumber(file.path().stem().string()));
            }
        }
    }
    return newest;
}

AccountTree scanAccount(const fs::path& accountDir) {
    AccountTree tree;
    if (!fs::exists(accountDir)) {
        return tree;
    }
    for (const fs::directory_entry& deviceDir : fs::directory_iterator(accountDir)) {
        std::string name = deviceDir.path().filename().string();
        int device = numberIn(name, devicePrefix.size(), name.size());
        if (name.rfind(devicePrefix, 0) != 0 || device < 0 || !deviceDir.is_directory()) {
            continue;
        }
        for (const fs::directory_entry& dateEntry : fs::directory_iterator(deviceDir.path())) {
            int date = wholeNumber(dateEntry.path().filename().string());
            if (isCalendarDate(date) && fs::is_directory(dateEntry.path() / "A")) {
                tree[device][date] = newestFile(dateEntry.path() / "A");
            }
        }
    }
    return tree;
}

// Gives every file its share of the visits, by weights that differ from file to file. A node with
// more files than the others has smaller ones.
void shareVisits(const WorldSettings& settings, std::vector<NodePlan>& nodes) {
    std::vector<std::uint64_t> ends; // running sum of the weights, file by file
    std::uint64_t sum = 0;
    for (const NodePlan& node : nodes) {
        Random random(nodeSeed(settings.seed, node) + static_cast<unsigned>(node.firstFile));
        std::uint64_t nodeWeight = 64 + random.below(129);
        for (std::size_t i = 0; i < node.visits.size(); ++i) {
            std::uint64_t weight = nodeWeight * (64 + random.below(129)) *
                                   static_cast<unsigned>(settings.filesPerNode) /
                                   node.visits.size() / 64;
            sum += std::max<std::uint64_t>(weight, 1);
            ends.push_back(sum);
        }
    }
    require(sum < (1ull << 28), "too many files");
    std::size_t file = 0;
    std::uint64_t given = 0;
    for (NodePlan& node : nodes) {
        for (std::uint64_t& visits : node.visits) {
            std::uint64_t upTo = settings.visits * ends[file++] / sum;
            visits = upTo - given;
            given = upTo;
        }
    }
}

NodePlan planNode(const std::string& account, int device, int date, int firstFile, int files) {
    NodePlan node;
    node.account = account;
    node.device = device;
    node.date = date;
    node.firstFile = firstFile;
    node.visits.resize(static_cast<std::size_t>(files));
    return node;
}

// Adds the new devices and dates to what the tree holds, as nodes without a file.
void extend(std::map<std::string, AccountTree>& accounts, const WorldSettings& settings) {
    int lastDevice = 0;
    int lastDate = 0;
    for (const auto& [account, tree] : accounts) {
        for (const auto& [device, dates] : tree) {
            lastDevice = std::max(lastDevice, device);
            lastDate = dates.empty() ? lastDate : std::max(lastDate, dates.rbegin()->first);
        }
    }
    require(lastDate != 0, "no log data to append to");
    for (auto& [account, tree] : accounts) {
        std::set<int> dates;
        for (const auto& [device, files] : tree) {
            for (const auto& [date, newest] : files) {
                dates.insert(date);
            }
        }
        for (int i = 0; i < settings.newDevices; ++i) {
            ++lastDevice;
            for (int date : dates) {
                tree[lastDevice][date] = -1;
            }
        }
        for (auto& [device, files] : tree) {
            for (int i = 1; i <= settings.newDays; ++i) {
                files[addDays(lastDate, i)] = -1;
            }
        }
    }
}

} // namespace

std::vector<std::string> defaultAccountNames(int count) {
    static const std::vector<std::string> names = {"alice", "bob",   "carol", "dave", "erin",
                                                   "frank", "grace", "heidi", "ivan", "judy"};
    std::vector<std::string> result;
    for (int i = 0; i < count; ++i) {
        auto index = static_cast<std::size_t>(i);
        result.push_back(index < names.size() ? names[index] : "user" + std::to_string(i + 1));
    }
    return result;
}

Totals World::generate(const WorldSettings& settings) {
    checkSettings(settings);
    checkGenerate(settings);
    if (fs::exists(logData(m_root))) {
        throw std::runtime_error(logData(m_root).string() + " exists already");
    }
    std::vector<std::string> accounts = settings.accountNames.empty()
                                            ? defaultAccountNames(settings.accounts)
                                            : settings.accountNames;
    std::vector<NodePlan> nodes;
    int device = firstDevice;
    for (const std::string& account : accounts) {
        for (int i = 0; i < settings.devices; ++i, ++device) {
            for (int day = 0; day < settings.days; ++day) {
                int files = nodes.empty() ? std::max(settings.filesPerNode, settings.longNodeFiles)
                                          : settings.filesPerNode;
                nodes.push_back(
                    planNode(account, device, addDays(settings.firstDate, day), 0, files));
            }
        }
    }
    shareVisits(settings, nodes);
    writeInstall(m_root, accounts, settings.install);
    return writeNodes(m_root, settings, nodes);
}

Totals World::append(const WorldSettings& settings) {
    checkSettings(settings);
    std::map<std::string, AccountTree> accounts;
    for (const std::string& account : readAccounts(m_root)) {
        accounts[account] = scanAccount(logData(m_root) / account);
    }
    extend(accounts, settings);
    std::vector<NodePlan> nodes;
    for (const auto& [account, tree] : accounts) {
        for (const auto& [device, files] : tree) {
            for (const auto& [date, newest] : files) {
                nodes.push_back(planNode(account, device, date, newest + 1, settings.filesPerNode));
            }
        }
    }
    shareVisits(settings, nodes);
    return writeNodes(m_root, settings, nodes);
}

} // namespace worldgen
