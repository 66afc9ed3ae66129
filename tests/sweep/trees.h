// Statistics that the service has made, of which later tests harm one thing or another.
#pragma once

#include "sim_world.h"

#include "frame/log.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <memory>
#include <string>

namespace kestrine::test {

// What the last round of logs that was counted is in.
struct Tree {
    const char* name;
    const char* dayInterval;
    const char* weekMonthInterval;
};
inline constexpr std::array g_trees = {Tree{"all merged", "1", "1"},
                                       Tree{"new-day files waiting", "36000", "172800"},
                                       Tree{"week and month behind", "1", "172800"}};

inline constexpr int g_oldRounds = 3; // counted when the harm comes; the next two are later visits
inline constexpr const char* g_day = "20131201/daycrcsort";
inline constexpr const char* g_week = "week20131201_20131207/weekcrcsort";
inline constexpr const char* g_month = "mon20131201_20131231/moncrcsort";
inline constexpr const char* g_waiting = "new/20131201/2.daycrcsortnew"; // unless all is merged

class Trees : public testing::Test {
protected:
    static void SetUpTestSuite() {
        reportErrorsToStderr(); // other lines are not even formatted
        worldgen::WorldSettings settings = smallLogs(240, 30, 3);
        settings.accounts = 2;
        settings.rawPercent = 0;
        g_world = std::make_unique<SimWorld>(settings, g_oldRounds + 1, true);
        g_world->configure("maxHashMemory", "1024"); // no spill, which would only take time
        g_world->configure("memoryDiskSize", "512000");
        ASSERT_TRUE(g_world->runs(1));
        g_world->addRound();
        g_start = g_world->save();
        for (const Tree& tree : g_trees) {
            startOver(tree);
            ASSERT_TRUE(g_world->runs(2));
            g_bases[&tree] = g_world->save();
        }
    }
    static void TearDownTestSuite() { g_world.reset(); }

    // Before the last two rounds that count; a second file of each kind is made of the first one.
    static void startOver(const Tree& tree) {
        g_world->restore(g_start);
        g_world->configure("daycrcsortInterval", tree.dayInterval);
        g_world->configure("weekmoncrcsortInterval", tree.weekMonthInterval);
    }

    static std::string pathOf(const std::string& file) {
        return SimWorld::g_statRoot + ("/alice/" + file);
    }

    static void restore(const Tree& tree) {
        g_world->restore(g_bases.at(&tree));
        g_later = false;
    }

    // The later visits come, once.
    static void later() {
        if (!g_later) {
            g_world->addRound();
            g_world->addRound();
        }
        g_later = true;
    }

    // Starts until a run ends in order. False when none does.
    static bool settle() {
        constexpr int mostStarts = 3;
        g_world->configure("daycrcsortInterval", "1");
        g_world->configure("weekmoncrcsortInterval", "1");
        const Plan plan = {.passes = 2, .inPause = [](int) { later(); }};
        for (int starts = 0; starts < mostStarts; ++starts) {
            if (g_world->run(plan) == End::Normal) {
                return true;
            }
        }
        return false;
    }

    static inline std::unique_ptr<SimWorld> g_world;
    static inline SimWorld::State g_start;
    static inline std::map<const Tree*, SimWorld::State> g_bases;
    static inline bool g_later = false; // visits have come
};

} // namespace kestrine::test
