// How far something long is, in one line of the terminal, which is gone when it is done.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

// Nothing is shown when the standard error stream is no terminal.
class ProgressLine {
public:
    // Columns for what stands beside the bar.
    explicit ProgressLine(int wordsWidth);
    ~ProgressLine() { erase(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // Whether to draw it again.
    [[nodiscard]] bool isDue() const;
    // Seconds since the beginning, not 0.
    [[nodiscard]] double seconds() const;
    // A bar for what is done of all, the words behind it and how long the rest will take.
    void draw(uint64_t done, uint64_t total, const std::string& words);
    // Frees the line, as before something else is printed, until it is drawn again.
    void erase();

private:
    int m_wordsWidth;
    int m_width; // of the terminal, 0: none
    uint32_t m_started;
    uint32_t m_drawn;
    bool m_shown = false;
};

// How far a reading is.
class Progress {
public:
    // Of `total` bytes.
    explicit Progress(uint64_t total) : m_total(total) {}

    // So many more bytes were read.
    void advance(uint64_t bytes) { reach(m_done + bytes); }
    // So many were read in all.
    void reach(uint64_t bytes);
    // As above; it comes back with the next advance.
    void erase() { m_line.erase(); }

    [[nodiscard]] uint64_t done() const { return m_done; }

private:
    static constexpr int g_wordsWidth = 40;

    uint64_t m_total;
    uint64_t m_done = 0;
    ProgressLine m_line{g_wordsWidth};
};

// "0:07", "12:30", "3:05:00"
[[nodiscard]] std::string durationText(uint64_t seconds);

} // namespace kestrine
