// Damaged, lost and left-over files, all logs being there: a few starts later everything is exact.
#include "damages.h"
#include "trees.h"

#include <random>
#include <set>

namespace kestrine::test {
namespace {

constexpr int g_randomTries = 400;

class Damaged : public Trees {
protected:
    // What is wrong after later visits came and the service was started until it ended in order.
    static std::string wrongInTheEnd() {
        return settle() ? g_world->wrong() : "fails again and again";
    }

    static std::string anyFile(const std::string& directory, std::mt19937_64& random) {
        std::set<std::string> files = g_world->disk.names(directory);
        std::erase_if(files, [](const std::string& name) { return name.ends_with('/'); });
        return files.empty()
                   ? std::string()
                   : directory + "/" +
                         *std::next(files.begin(), static_cast<ptrdiff_t>(random() % files.size()));
    }

    // A damage that the format lets be found: of compressed blocks or of the end, or of the length.
    static void damageSomehow(const std::string& path, std::mt19937_64& random) {
        if (path.empty()) {
            return;
        }
        MemoryDisk::Bytes& bytes = g_world->disk.files.at(path);
        if (bytes.size() < 60 || random() % 4 == 0) {
            bytes.resize(random() % (bytes.size() + 1));
        } else if (random() % 8 == 0 && g_world->disk.openNow() == 0) {
            g_world->disk.files.erase(path);
        } else {
            const size_t end = std::min<size_t>(
                loadLittle<uint64_t>(bytes.data() + bytes.size() - 8), bytes.size() - 8);
            const bool inBlocks = end > 40 && bytes[32] == 1 && random() % 4 != 0;
            const size_t at = inBlocks ? random() % end : bytes.size() - 1 - random() % 8;
            bytes[at] ^= static_cast<uint8_t>(1 + random() % 255);
        }
    }
};

// Each byte changed, and the file cut before it.
TEST_F(Damaged, AnyByte) {
    constexpr int step = 5;
    Report report(*g_world);
    int number = 0;
    for (const auto& [tree, file] : {std::pair<const Tree*, std::string>{&g_trees[0], g_day},
                                     {&g_trees[0], g_week},
                                     {&g_trees[0], "20131201/topn/all.top"},
                                     {&g_trees[1], g_month},
                                     {&g_trees[1], g_waiting},
                                     {&g_trees[2], g_waiting}}) {
        const MemoryDisk::Bytes good = g_bases.at(tree).files.at(pathOf(file));
        ASSERT_EQ(good[32], 1) << file << " is not compressed";
        for (auto at = static_cast<size_t>(step * (firstOf() - 1)); at < good.size();
             at += static_cast<size_t>(step * stepOf())) {
            restore(*tree);
            MemoryDisk::Bytes& bytes = g_world->disk.files[pathOf(file)];
            if (++number % 4 == 0) {
                bytes.resize(at);
            } else {
                bytes[at] = static_cast<uint8_t>(bytes[at] ^ (number % 2 == 0 ? 1 : 0x80));
            }
            report.add(std::string(tree->name) + ", " + file + ", case " + std::to_string(number) +
                           ", byte " + std::to_string(at),
                       wrongInTheEnd());
        }
    }
}

// Files lost together, and what else may lie in the tree.
TEST_F(Damaged, FilesTogether) {
    using Harms = std::vector<std::pair<std::string, Harm>>;
    const std::string list = "/topn/all.top";
    Report report(*g_world);
    const std::map<std::string, Harms> cases = {
        {"all of the date", {{g_day, flipBlock}, {g_week, flipBlock}, {g_month, truncate}}},
        {"day, week and month lost",
         {{"20131201", lose},
          {"20131202", lose},
          {"week20131201_20131207", lose},
          {"mon20131201_20131231", lose}}},
        {"everything lost", {{"", lose}}},
        {"lists lost", {{"20131201/topn", lose}, {"week20131201_20131207/topn", lose}}},
        {"a list lost, one too many",
         {{"20131201" + list, lose}, {"20131201/topn/99.top", litter}}},
        {"no file of ours", {{"new/20131201/7.daycrcsortnew", litter}}},
    };
    for (const Tree& tree : g_trees) {
        for (const auto& [name, harms] : cases) {
            restore(tree);
            for (const auto& [file, apply] : harms) {
                apply(g_world->disk,
                      file.empty() ? SimWorld::g_statRoot + std::string("/alice") : pathOf(file));
            }
            report.add(tree.name + (", " + name), wrongInTheEnd());
        }
    }
}

// Several files before a start or between two passes, picked and spoilt at random.
TEST_F(Damaged, SeveralFiles) {
    Report report(*g_world);
    for (int seed = firstOf(); seed <= g_randomTries; seed += stepOf()) {
        std::mt19937_64 random(static_cast<uint64_t>(seed));
        const Tree& tree = g_trees[random() % g_trees.size()];
        const bool running = random() % 3 == 0;
        const auto damage = [&random] {
            for (uint64_t files = 1 + random() % 6; files > 0; --files) {
                damageSomehow(anyFile(SimWorld::g_statRoot + std::string("/alice"), random),
                              random);
            }
        };
        restore(tree);
        if (running) {
            (void)g_world->run(
                {.passes = 3, .inPause = [&](int pass) { pass == 1 ? damage() : later(); }});
        } else {
            damage();
        }
        report.add("seed " + std::to_string(seed), wrongInTheEnd());
    }
}

// One file, be it a finished or a temporary one, at any change that the service makes.
TEST_F(Damaged, AtAnyMoment) {
    Report report(*g_world);
    for (int seed = firstOf(); seed <= g_randomTries; seed += stepOf()) {
        std::mt19937_64 random(static_cast<uint64_t>(seed));
        const auto moment = static_cast<int>(20 + random() % 400);
        const char* const directory =
            random() % 4 == 0 ? SimWorld::g_memoryDisk : SimWorld::g_statRoot;
        startOver(g_trees[0]);
        g_later = false;
        const End end = g_world->run({.onCall = [&](int number, const char*) {
            if (number == moment) {
                damageSomehow(anyFile(directory, random), random);
            }
        }});
        g_later = end == End::Normal;
        report.add("seed " + std::to_string(seed), wrongInTheEnd());
    }
}

} // namespace
} // namespace kestrine::test
