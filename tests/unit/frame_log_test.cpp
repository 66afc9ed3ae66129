#include "frame/log.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace kestrine {
namespace {

// Marks on the console when a log file is opened.
class Log : public testing::Test, protected test::FakeClockPlatform {
protected:
    Log() {
        executable = m_dir / "kestrine";
        local = LocalTime{2024, 3, 5, 14, 5, 3};
    }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        std::fputs("<file>", stdout);
        std::fflush(stdout); // the console's lines do not go through a buffer
        errno = EPERM;
        return FakeClockPlatform::open(path, mode);
    }
    [[nodiscard]] std::string day(const std::string& date) const {
        return m_dir.read("log/kestrine/kestrine" + date + ".txt");
    }
    test::TempDir m_dir;
    test::ScopedPlatform m_scope{*this};
    CRealTimeLog m_log;
};

TEST_F(Log, MidnightBeginsANewFileAndKeepsTwentyNine) {
    const std::string dir = "log/kestrine/";
    for (int date = 20240201; date <= 20240228; ++date) {
        m_dir.write(dir + "kestrine" + std::to_string(date) + ".txt");
    }
    for (const char* name : {"kestrine.txt", "kestrine_old.txt", "kestrine20240304.txt",
                             "akestrine.txt", "kestrine20230101.log", "other.txt"}) {
        m_dir.write(dir + name);
    }
    EXPECT_EQ(m_log.write(0, " first"), 1); // 31 match: the two that sort first go
    EXPECT_FALSE(m_dir.has(dir + "kestrine.txt") || m_dir.has(dir + "kestrine20240201.txt"));
    EXPECT_TRUE(m_dir.has(dir + "kestrine20240202.txt"));
    EXPECT_EQ(m_dir.tree().size(), 2U + 30U + 3U); // "log/", "log/kestrine/"

    local = LocalTime{2024, 3, 6, 0, 0, 0};
    EXPECT_EQ(m_log.write(0, " second"), 1);
    EXPECT_FALSE(m_dir.has(dir + "kestrine20240202.txt"));
    EXPECT_TRUE(m_dir.has(dir + "kestrine20240203.txt"));
    EXPECT_EQ(day("20240306"), " i  0: 0: 0 second\n");
}

TEST_F(Log, FileComesFirstButForTheSignalHandler) {
    errno = EXDEV;
    testing::internal::CaptureStdout();
    const std::string longText(1500, 'x');
    logMessage(LogLevel::Info, {"int kestrine::(anonymous namespace)::A::b(int (*)(char))", 7},
               "stop %d%% %s", 1, longText.c_str());
    logConsoleFirst(LogLevel::Debug, {"void kestrine::signal_handler(int)", 8}, "Recv:%d ... ", 2);
    logMessage(LogLevel::Error, {"void kestrine::f()", 9}, "host %s",
               "a\r\nE:\x7f\xC3\xA4"); // no forged line
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "<file>I:A::b 7 stop 1% " + longText +
                  "\nD:signal_handler 8 Recv:2 ... \n<file>"
                  "<file>E:f 9 host a\\x0d\\x0aE:\\x7f\xC3\xA4\n");
    EXPECT_EQ(errno, EXDEV); // a caller's own report of the same failure follows
    EXPECT_TRUE(
        day("20240305").find("x\n d 14: 5: 3 signal_handler 8 Recv:2 ... \n e 14: 5: 3 f 9") !=
        std::string::npos);
}

} // namespace
} // namespace kestrine
