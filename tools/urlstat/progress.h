// How far a long reading is, in one line of the terminal, which is gone when it is done.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine::viewer {

class Progress {
public:
    // Of `total` bytes. Shows nothing when the standard error stream is no terminal.
    explicit Progress(uint64_t total);
    ~Progress() { erase(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // So many more bytes were read.
    void advance(uint64_t bytes);
    // So many were read in all.
    void reach(uint64_t bytes);
    // Frees the line, as before something else is printed; it comes back with the next advance.
    void erase();

    [[nodiscard]] uint64_t done() const { return m_done; }

private:
    void draw(uint32_t now);

    uint64_t m_total;
    uint64_t m_done = 0;
    int m_width; // of the terminal, 0: none
    uint32_t m_started;
    uint32_t m_drawn;
    bool m_shown = false;
};

// "0:07", "12:30", "3:05:00"
[[nodiscard]] std::string durationText(uint64_t seconds);

} // namespace kestrine::viewer
