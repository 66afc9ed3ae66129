// A program that a test starts; one .cpp per system.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kestrine::test {

// What ends a service in order; the values are those of the signals. A Windows program gets the
// console event that its runtime turns into the signal.
enum class StopRequest { HangUp = 1, Interrupt = 2, Terminate = 15 };

// All functions throw std::runtime_error when the system refuses.
class ChildProcess {
public:
    // Starts the program in `directory`, its console output going into one pipe. It has a console
    // (Windows) of its own and never outlives the test program.
    static std::unique_ptr<ChildProcess> start(const std::string& program,
                                               const std::vector<std::string>& arguments,
                                               const std::string& directory);
    static bool canRequest(StopRequest request);

    virtual ~ChildProcess() = default;
    // Waits for output and returns the bytes read; 0 when the pipe is closed, which happens at the
    // end of the program.
    virtual size_t read(std::span<char> buffer) = 0;
    // Both do nothing to a program that has ended. `kill` ends it at once, without its doing.
    virtual void request(StopRequest request) = 0;
    virtual void kill() = 0;
    // Waits for the end. The exit code as `main` returned it, -1 included; 1000 and more for a
    // program that did not come to return.
    virtual int wait() = 0;
};

} // namespace kestrine::test
