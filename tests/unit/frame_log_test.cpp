#include "frame/log.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

namespace kestrine {

// ---- qualified names

struct Base {
    virtual ~Base() = default;
    [[nodiscard]] virtual std::string run(const std::string&) const = 0;
};

template <typename T>
struct Probe : Base {
    Probe() : constructed(qualifiedName(__PRETTY_FUNCTION__)) {}
    ~Probe() override { destroyed() = qualifiedName(__PRETTY_FUNCTION__); }
    static std::string& destroyed() {
        static std::string name;
        return name;
    }
    [[nodiscard]] std::string run(const std::string&) const override {
        return qualifiedName(__PRETTY_FUNCTION__);
    }
    [[nodiscard]] static std::string shared(void (*)(int)) {
        return qualifiedName(__PRETTY_FUNCTION__);
    }
    template <typename U>
    [[nodiscard]] std::string both(U) {
        return qualifiedName(__PRETTY_FUNCTION__);
    }
    [[nodiscard]] std::string operator()(T) { return qualifiedName(__PRETTY_FUNCTION__); }
    [[nodiscard]] std::string operator<(const Probe<T>&) const {
        return qualifiedName(__PRETTY_FUNCTION__);
    }
    operator std::string() const { return qualifiedName(__PRETTY_FUNCTION__); }

    std::string constructed;
};

namespace Util {
std::vector<std::string> inNamespace(const std::vector<std::string>&) {
    const auto lambda = [](int) { return qualifiedName(__PRETTY_FUNCTION__); };
    return {qualifiedName(__PRETTY_FUNCTION__), lambda(1)};
}
} // namespace Util

namespace {

struct Hidden {
    [[nodiscard]] static std::string name() { return qualifiedName(__PRETTY_FUNCTION__); }
};

TEST(QualifiedName, OfThisCompiler) {
    {
        Probe<int> probe;
        EXPECT_EQ(probe.constructed, "Probe::Probe");
        EXPECT_EQ(probe.run(""), "Probe::run");
        EXPECT_EQ(probe.both(2.0), "Probe::both");
        EXPECT_EQ(probe(1), "Probe::operator()");
        EXPECT_EQ(probe < probe, "Probe::operator<");
        EXPECT_TRUE(std::string(probe).starts_with("Probe::operator "));
    }
    EXPECT_EQ(Probe<int>::destroyed(), "Probe::~Probe");
    EXPECT_EQ(Probe<Base*>::shared(nullptr), "Probe::shared");
    const std::vector<std::string> both(2, "Util::inNamespace");
    EXPECT_EQ(Util::inNamespace({}), both);
    EXPECT_EQ(Hidden::name(), "Hidden::name");
}

TEST(QualifiedName, OfEverySpelling) {
    const std::pair<const char*, const char*> cases[] = {
        {"int main(int, char**)", "main"},
        {"int kestrine::UrlStat::run(const std::string&)", "UrlStat::run"},
        {"virtual kestrine::UrlStat::~UrlStat()", "UrlStat::~UrlStat"},
        {"static std::unique_ptr<std::vector<int> > kestrine::A::make(int (*)(char)) noexcept",
         "A::make"},
        {"const kestrine::A& kestrine::A::self() const", "A::self"},
        {"int kestrine::{anonymous}::read(File&)", "read"},
        {"int kestrine::(anonymous namespace)::Reader::read(File &)", "Reader::read"},
        {"bool kestrine::CPriorityQueue<T>::push(T) [with T = kestrine::UrlRecord*]",
         "CPriorityQueue::push"},
        {"bool kestrine::CPriorityQueue<kestrine::UrlRecord *>::push(T) [T = UrlRecord *]",
         "CPriorityQueue::push"},
        {"void kestrine::f(int)::<lambda(auto:1)>::<lambda()>", "f"},
        {"auto kestrine::f(int)::(anonymous class)::operator()(int) const", "f"},
        {"bool kestrine::H<T>::operator<=(const kestrine::H<T>&) const [with T = int]",
         "H::operator<="},
        {"kestrine::A* kestrine::A::operator->()", "A::operator->"},
        {"kestrine::A::operator bool() const", "A::operator bool"},
        {"int kestrine::operators(int)", "operators"},
        {"main", "main"},
        {"", ""},
    };
    for (const auto& [signature, name] : cases) {
        EXPECT_EQ(qualifiedName(signature), name) << signature;
    }
}

// ---- the files

class Log : public testing::Test {
protected:
    Log() {
        m_clock.executable = m_dir / "kestrine";
        m_clock.local = LocalTime{2024, 3, 5, 14, 5, 3};
    }
    [[nodiscard]] std::string today(const std::string& name = "20240305") const {
        return m_dir.read("log/kestrine/kestrine" + name + ".txt");
    }

    test::TempDir m_dir;
    test::FakeClockPlatform m_clock;
    test::ScopedPlatform m_scope{m_clock};
    CRealTimeLog m_log;
};

TEST_F(Log, LinesCarryLetterAndTime) {
    const std::pair<int32_t, char> levels[] = {{0, 'i'}, {1, 'w'}, {2, 'e'}, {3, 'd'},
                                               {4, 'r'}, {5, 'i'}, {7, 'e'}};
    std::string expected;
    for (const auto& [level, letter] : levels) {
        EXPECT_EQ(m_log.write(level, " UrlFile::open 81 open fail"), 1);
        expected += std::string(" ") + letter + " 14: 5: 3 UrlFile::open 81 open fail\n";
    }
    EXPECT_EQ(today(), expected);
}

TEST_F(Log, MessageIsCutInTheFileAlone) {
    testing::internal::CaptureStdout();
    for (const size_t length : {1000, 1500}) {
        LOG_ERROR("%s", std::string(length, 'x').c_str());
    }
    const std::string console = testing::internal::GetCapturedStdout();
    std::vector<std::string> lines;
    std::istringstream file(today());
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 2U);
    const std::string header = " e 14: 5: 3";
    EXPECT_LT(lines[0].size(), header.size() + 1023 + 1);
    EXPECT_EQ(lines[1].size(), header.size() + 1023);
    EXPECT_EQ(console.substr(0, 2), "E:");
    EXPECT_NE(console.find(std::string(1500, 'x') + "\n"), std::string::npos);
}

TEST_F(Log, EitherSeparatorEndsTheExecutablesDirectory) {
    m_clock.executable = "kestrine"; // no directory
    EXPECT_EQ(m_log.write(0, " x"), 0);
    m_clock.executable = "";
    EXPECT_EQ(m_log.write(0, " x"), 0);
    EXPECT_TRUE(m_dir.tree().empty());
    m_clock.executable = m_dir.path() + "/sub\\kestrine.exe";
    m_dir.makeDirs("sub");
    EXPECT_EQ(m_log.write(0, " x"), 1);
}

TEST_F(Log, MidnightBeginsANewFileAndKeepsTwentyNine) {
    const std::string dir = "log/kestrine/";
    for (int day = 1; day <= 28; ++day) {
        m_dir.write(dir + "kestrine202402" + std::to_string(100 + day).substr(1) + ".txt", "old");
    }
    for (const char* matching : {"kestrine.txt", "kestrine_old.txt", "kestrine20240304.txt"}) {
        m_dir.write(dir + matching);
    }
    for (const char* foreign : {"akestrine.txt", "kestrine20230101.log", "other.txt"}) {
        m_dir.write(dir + foreign);
    }
    EXPECT_EQ(m_log.write(0, " first"), 1); // 31 match: the two that sort first go
    EXPECT_FALSE(m_dir.has(dir + "kestrine.txt"));
    EXPECT_FALSE(m_dir.has(dir + "kestrine20240201.txt"));
    EXPECT_TRUE(m_dir.has(dir + "kestrine20240202.txt"));
    EXPECT_TRUE(m_dir.has(dir + "kestrine_old.txt"));
    EXPECT_TRUE(m_dir.has(dir + "other.txt"));
    EXPECT_EQ(m_dir.tree().size(), 2U + 30U + 3U); // "log/", "log/kestrine/"

    m_clock.local = LocalTime{2024, 3, 6, 0, 0, 0};
    EXPECT_EQ(m_log.write(0, " second"), 1);
    EXPECT_FALSE(m_dir.has(dir + "kestrine20240202.txt"));
    EXPECT_TRUE(m_dir.has(dir + "kestrine20240203.txt"));
    EXPECT_EQ(today("20240306"), " i  0: 0: 0 second\n");
    EXPECT_EQ(today(), " i 14: 5: 3 first\n");
}

// Marks on the console when a log file is written.
class MarkingPlatform : public test::FakeClockPlatform {
public:
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        std::fputs("<file>", stdout);
        errno = EPERM;
        return FakeClockPlatform::open(path, mode);
    }
};

TEST_F(Log, FileComesFirstButForTheSignalHandler) {
    MarkingPlatform marking;
    const test::ScopedPlatform scope(marking);
    errno = EXDEV;
    testing::internal::CaptureStdout();
    logMessage(LogLevel::Info, {"int kestrine::A::b()", 7}, "stop %d%%", 1);
    logConsoleFirst(LogLevel::Debug, {"void kestrine::signal_handler(int)", 8},
                    "Recv signal:%d ... ", 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "<file>I:A::b 7 stop 1%\nD:signal_handler 8 Recv signal:2 ... \n<file>");
    EXPECT_EQ(errno, EXDEV); // a caller's own report of the same failure follows
    EXPECT_EQ(today(), " i 14: 5: 3 A::b 7 stop 1%\n"
                       " d 14: 5: 3 signal_handler 8 Recv signal:2 ... \n");
}

} // namespace
} // namespace kestrine
