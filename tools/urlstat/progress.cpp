#include "progress.h"

#include "platform/platform.h"

#include <algorithm>
#include <cstdio>

namespace kestrine::viewer {

namespace {

constexpr uint32_t g_drawEvery = 200; // ms
constexpr int g_wordsWidth = 40;      // columns beside the bar
constexpr int g_longestProgressBar = 40;
constexpr double g_mebibyte = 1048576;

std::string bar(double share, int width) {
    const int length = std::clamp(width - g_wordsWidth, 0, g_longestProgressBar);
    const auto filled = static_cast<size_t>(share * length);
    return "[" + std::string(filled, '#') + std::string(static_cast<size_t>(length) - filled, '.') +
           "]";
}

} // namespace

std::string durationText(uint64_t seconds) {
    char text[48];
    const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    if (seconds < 3600) {
        std::snprintf(text, sizeof text, "%llu:%02llu", number(seconds / 60), number(seconds % 60));
    } else {
        std::snprintf(text, sizeof text, "%llu:%02llu:%02llu", number(seconds / 3600),
                      number(seconds / 60 % 60), number(seconds % 60));
    }
    return text;
}

Progress::Progress(uint64_t total)
    : m_total(total), m_width(platform().terminalWidth(true)), m_started(platform().tickCount()),
      m_drawn(m_started) {}

void Progress::advance(uint64_t bytes) {
    reach(m_done + bytes);
}

void Progress::reach(uint64_t bytes) {
    m_done = bytes;
    if (m_width == 0) {
        return;
    }
    // Differences of ticks hold across the wrap of the counter.
    const uint32_t now = platform().tickCount();
    if (now - m_drawn >= g_drawEvery) {
        draw(now);
    }
}

void Progress::draw(uint32_t now) {
    m_drawn = now;
    m_shown = true;
    // Files may grow while they are read.
    const uint64_t done = std::min(m_done, m_total);
    const double share =
        m_total == 0 ? 1 : static_cast<double>(done) / static_cast<double>(m_total);
    const double seconds = std::max(now - m_started, uint32_t{1}) / 1000.0;
    const double rate = static_cast<double>(done) / seconds;
    const double left = rate > 0 ? static_cast<double>(m_total - done) / rate : 0;
    char words[96];
    std::snprintf(words, sizeof words, " %3.0f%%  %.0f MiB/s  ", 100 * share, rate / g_mebibyte);
    std::string line = bar(share, m_width) + words;
    // Of the first moments no time can be told.
    line += rate > 0 ? durationText(static_cast<uint64_t>(left)) + " left" : "";
    line.resize(std::min(line.size(), static_cast<size_t>(m_width - 1)));
    platform().writeConsole("\r" + line + "\x1b[K", true);
}

void Progress::erase() {
    if (m_shown) {
        m_shown = false;
        platform().writeConsole("\r\x1b[K", true);
    }
}

} // namespace kestrine::viewer
