// A running program, watched through its console lines.
#pragma once

#include "child_process.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kestrine::test {

using Lines = std::vector<std::string>; // without line ends

class ServiceProcess {
public:
    ServiceProcess(const std::string& program, const std::vector<std::string>& arguments,
                   const std::string& directory);
    ~ServiceProcess(); // ends the program

    [[nodiscard]] Lines lines() const; // so far, complete ones
    // The last few of them, for messages.
    [[nodiscard]] std::string tail() const;

    // Wait for lines with a text. False when the program ended or the time is over before that.
    [[nodiscard]] bool waitForLine(std::string_view part, int times = 1);
    // A pause between two passes begins; of the whole run, counted from 1.
    [[nodiscard]] bool waitForPause(int number = 1) { return waitForLine(m_pauseLine, number); }
    [[nodiscard]] int pauses() const;

    void request(StopRequest request) { m_child->request(request); }
    void kill() { m_child->kill(); }
    // Waits for the end; see ChildProcess::wait. A program that does not end is killed, and the
    // test fails.
    [[nodiscard]] int wait();

private:
    void readOutput();
    void takeOutput(std::string_view text);

    static constexpr std::chrono::seconds m_limit{180};
    static constexpr std::string_view m_pauseLine = " 0s elapsed, wait to find new data";

    std::unique_ptr<ChildProcess> m_child;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    Lines m_lines;
    std::string m_partial; // line not ended yet
    bool m_ended = false;
    std::thread m_reader;
};

// A program that ends by itself.
struct Answer {
    int code;
    Lines lines;
};
Answer run(const std::string& program, const Lines& arguments, const std::string& directory);

[[nodiscard]] int countLines(const Lines& lines, std::string_view part);

} // namespace kestrine::test
