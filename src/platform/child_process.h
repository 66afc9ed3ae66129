// A program that this one has started.
#pragma once

#include <string>

namespace kestrine {

// How a program ended.
struct ChildEnd {
    bool killed = false; // by the system, or by a signal that it did not handle
    int code = 0;        // its exit code, or the number of what killed it
};

// Nothing of it outlasts this object or this process: however either goes, the program is killed.
class ChildProcess {
public:
    virtual ~ChildProcess() = default;

    // 0: it runs; 1: it has ended, as `end` then says; -1. Returns at once.
    [[nodiscard]] virtual int poll(ChildEnd& end) = 0;
    // Appends to `text` what the program has printed since, errors among it, as it came. Returns at
    // once. Of a program that has ended the rest.
    virtual void takeOutput(std::string& text) = 0;
    // Requests a stop, which the program takes for signal 15. 0, also when it has ended, or -1.
    [[nodiscard]] virtual int askToStop() = 0;
};

} // namespace kestrine
