// Programs that are started: this one, told to be the child.
#include "platform/command_line.h"
#include "platform/platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace kestrine {
namespace {

constexpr const char* g_childArgument = "--be-a-child";
constexpr uint32_t g_step = 5;       // ms
constexpr uint32_t g_limit = 30'000; // ms; for what comes at once on a machine that has time

std::unique_ptr<ChildProcess> startMyself(const std::vector<std::string>& words) {
    std::vector<std::string> arguments = {"--gtest_filter=ChildProcessTest.*", g_childArgument};
    arguments.insert(arguments.end(), words.begin(), words.end());
    std::unique_ptr<ChildProcess> child;
    EXPECT_EQ(systemPlatform().startProgram(systemPlatform().executablePath(), arguments, child),
              0);
    return child;
}

bool waitFor(const std::function<bool()>& condition) {
    for (uint32_t waited = 0; waited < g_limit; waited += g_step) {
        if (condition()) {
            return true;
        }
        systemPlatform().sleep(g_step);
    }
    return false;
}

bool prints(ChildProcess& child, const std::string& text, std::string& output) {
    return waitFor([&] {
        child.takeOutput(output);
        return output.find(text) != std::string::npos;
    });
}

// "code 3", "killed 9"; "-" when it does not end.
std::string endOf(ChildProcess& child, std::string* output = nullptr) {
    ChildEnd end;
    std::string ignored;
    const bool ended = waitFor([&] {
        child.takeOutput(output != nullptr ? *output : ignored);
        return child.poll(end) != 0;
    });
    child.takeOutput(output != nullptr ? *output : ignored);
    return ended ? (end.killed ? "killed " : "code ") + std::to_string(end.code) : "-";
}

// ---- the child

std::atomic<bool> g_asked{false};

void say(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

void printWords(std::span<const std::string> words) {
    for (const std::string& word : words) {
        say("<" + word + ">");
    }
    std::fprintf(stderr, "and an error\n");
    std::_Exit(7);
}

void waitToBeAsked() {
    const int stop[] = {15, 2};
    if (systemPlatform().installSignalHandler(stop, [](int number) { g_asked = number == 15; }) !=
        0) {
        std::_Exit(9);
    }
    say("ready");
    (void)waitFor([] { return g_asked.load(); });
}

void holdLock(const std::string& path) {
    std::unique_ptr<NamedEvent> lock;
    say(systemPlatform().lockFile(path, lock) == LockResult::Locked ? "ready" : "no lock");
    systemPlatform().sleep(2 * g_limit);
}

// Signals that the parent leaves to its thread must come through to its child.
void relay() {
    waitToBeAsked();
    const auto child = startMyself({"wait"});
    std::string output;
    const bool asked = prints(*child, "ready", output) && child->askToStop() == 0;
    say("child " + (asked ? endOf(*child) : output));
}

// Before the first test of a process that is to be a child.
class Child final : public testing::Environment {
public:
    void SetUp() override {
        std::vector<std::string> words = testing::internal::GetArgvs();
        const auto begin = std::ranges::find(words, g_childArgument);
        if (begin != words.end()) {
            act(std::vector<std::string>(begin + 1, words.end()));
            std::_Exit(0);
        }
    }

private:
    static void act(const std::vector<std::string>& words) {
        if (words.at(0) == "print") {
            printWords(std::span(words).subspan(1));
        } else if (words[0] == "wait") {
            waitToBeAsked();
            std::_Exit(g_asked ? 3 : 4);
        } else if (words[0] == "lock") {
            holdLock(words.at(1));
        } else if (words[0] == "parent") {
            const auto child = startMyself({"lock", words.at(1)});
            std::string output;
            say(prints(*child, "ready", output) ? "child ready" : output);
            systemPlatform().sleep(2 * g_limit);
        } else if (words[0] == "relay") {
            relay();
        }
    }
};

[[maybe_unused]] const auto* const g_child = testing::AddGlobalTestEnvironment(new Child);

// ---- the tests

TEST(ChildProcessTest, ArgumentsOutputAndExitCode) {
    const std::vector<std::string> odd = {"",          "a b",           "\"",     "\\",
                                          "a\\\\b\\",  "x\\\"y",        "\\\\\"", "tab\tz",
                                          "*?%PATH%^", "--flag=\"q r\""};
    std::vector<std::string> words = odd;
    words.insert(words.begin(), "print");
    std::string expected;
    for (const std::string& word : odd) {
        expected += "<" + word + ">\n";
    }
    const auto child = startMyself(words);
    ASSERT_TRUE(child);
    std::string output;
    EXPECT_EQ(endOf(*child, &output), "code 7");
    EXPECT_NE(output.find(expected + "and an error\n"), std::string::npos) << output;
    EXPECT_EQ(endOf(*child), "code 7") << "again";
    EXPECT_EQ(child->askToStop(), 0) << "of one that has ended";
    EXPECT_EQ(
        commandLine("C:\\a b\\p.exe", std::vector<std::string>{"a\\b", "c d\\", "q\"\\\"", ""}),
        R"("C:\a b\p.exe" a\b "c d\\" "q\"\\\"" "")");
}

TEST(ChildProcessTest, AStopIsAskedFor) {
    for (const std::string mode : {"wait", "relay"}) {
        const auto child = startMyself({mode});
        std::string output;
        ASSERT_TRUE(prints(*child, "ready", output)) << output;
        ChildEnd end;
        EXPECT_EQ(child->poll(end), 0);
        EXPECT_EQ(child->askToStop(), 0);
        EXPECT_EQ(endOf(*child, &output), mode == "wait" ? "code 3" : "code 0");
        EXPECT_TRUE(mode == "wait" || output.find("child code 3") != std::string::npos) << output;
    }
}

TEST(ChildProcessTest, NoneOutlivesItsParent) {
    const test::TempDir dir;
    const std::string lock = dir / "lock";
    const auto holds = [&lock](LockResult result) {
        return waitFor([&] { return systemPlatform().probeLock(lock) == result; });
    };
    for (const std::string mode : {"lock", "parent"}) {
        auto child = startMyself({mode, lock});
        std::string output;
        ASSERT_TRUE(prints(*child, "ready", output)) << output;
        EXPECT_TRUE(holds(LockResult::HeldByAnother));
        child.reset();
        EXPECT_TRUE(holds(LockResult::Locked)) << mode;
    }
}

TEST(ChildProcessTest, WhatCannotBeStartedSaysSo) {
    const test::TempDir dir;
    std::unique_ptr<ChildProcess> child;
    EXPECT_EQ(systemPlatform().startProgram(dir / "no", {}, child), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(systemPlatform().startProgram(dir.path(), {}, child), -1);
    EXPECT_FALSE(child);
    EXPECT_GE(systemPlatform().processorCount(), 1U);
}

} // namespace
} // namespace kestrine
