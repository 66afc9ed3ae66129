#include "service_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <exception>

namespace kestrine::test {

int countLines(const Lines& lines, std::string_view part) {
    return static_cast<int>(std::ranges::count_if(
        lines, [part](const std::string& line) { return line.find(part) != std::string::npos; }));
}

ServiceProcess::ServiceProcess(const std::string& program,
                               const std::vector<std::string>& arguments,
                               const std::string& directory)
    : m_child(ChildProcess::start(program, arguments, directory)),
      m_reader([this] { readOutput(); }) {}

ServiceProcess::~ServiceProcess() {
    m_child->kill();
    m_reader.join();
}

void ServiceProcess::readOutput() {
    std::array<char, 65536> buffer;
    try {
        while (const size_t size = m_child->read(buffer)) {
            takeOutput({buffer.data(), size});
        }
    } catch (const std::exception& failure) {
        takeOutput(std::string("reading the output failed: ") + failure.what() + "\n");
    }
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

void ServiceProcess::takeOutput(std::string_view text) {
    const std::lock_guard lock(m_mutex);
    for (const char c : text) {
        if (c == '\n') {
            m_lines.push_back(std::move(m_partial));
            m_partial.clear();
        } else if (c != '\r') {
            m_partial += c;
        }
    }
    m_changed.notify_all();
}

Lines ServiceProcess::lines() const {
    const std::lock_guard lock(m_mutex);
    return m_lines;
}

std::string ServiceProcess::tail() const {
    const Lines all = lines();
    std::string text = "last console lines:\n";
    for (size_t i = all.size() - std::min<size_t>(all.size(), 12); i < all.size(); ++i) {
        text += "  " + all[i].substr(0, 240) + "\n";
    }
    return text;
}

bool ServiceProcess::waitForLine(std::string_view part, int times) {
    bool there = false;
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, m_limit,
                       [&] { return (there = countLines(m_lines, part) >= times) || m_ended; });
    return there;
}

int ServiceProcess::pauses() const {
    return countLines(lines(), m_pauseLine);
}

int ServiceProcess::wait() {
    {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, m_limit, [this] { return m_ended; })) {
            ADD_FAILURE() << "the program does not end, killed";
            m_child->kill();
        }
    }
    return m_child->wait();
}

Answer run(const std::string& program, const Lines& arguments, const std::string& directory) {
    ServiceProcess process(program, arguments, directory);
    const int code = process.wait();
    return {code, process.lines()};
}

} // namespace kestrine::test
