#include "progress.h"

#include "platform/platform.h"

#include <algorithm>
#include <cstdio>

namespace kestrine {

namespace {

constexpr uint32_t g_drawEvery = 200; // ms
constexpr int g_longestBar = 40;
constexpr double g_mebibyte = 1048576;

std::string bar(double share, int width) {
    const int length = std::clamp(width, 0, g_longestBar);
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

ProgressLine::ProgressLine(int wordsWidth)
    : m_wordsWidth(wordsWidth), m_width(platform().terminalWidth(true)),
      m_started(platform().tickCount()), m_drawn(m_started) {}

bool ProgressLine::isDue() const {
    // Differences of ticks hold across the wrap of the counter.
    return m_width != 0 && platform().tickCount() - m_drawn >= g_drawEvery;
}

double ProgressLine::seconds() const {
    return std::max(platform().tickCount() - m_started, uint32_t{1}) / 1000.0;
}

void ProgressLine::draw(uint64_t done, uint64_t total, const std::string& words) {
    m_drawn = platform().tickCount();
    m_shown = true;
    // Files may grow while they are read.
    done = std::min(done, total);
    const double share = total == 0 ? 1 : static_cast<double>(done) / static_cast<double>(total);
    std::string line = bar(share, m_width - m_wordsWidth) + words;
    // Of the first moments no time can be told.
    if (done > 0) {
        const double left =
            static_cast<double>(total - done) * seconds() / static_cast<double>(done);
        line += durationText(static_cast<uint64_t>(left)) + " left";
    }
    line.resize(std::min(line.size(), static_cast<size_t>(m_width - 1)));
    platform().writeConsole("\r" + line + "\x1b[K", true);
}

void ProgressLine::erase() {
    if (m_shown) {
        m_shown = false;
        platform().writeConsole("\r\x1b[K", true);
    }
}

void Progress::reach(uint64_t bytes) {
    m_done = bytes;
    if (!m_line.isDue()) {
        return;
    }
    const auto done = static_cast<double>(std::min(m_done, m_total));
    const double share = m_total == 0 ? 1 : done / static_cast<double>(m_total);
    char words[96];
    std::snprintf(words, sizeof words, " %3.0f%%  %.0f MiB/s  ", 100 * share,
                  done / m_line.seconds() / g_mebibyte);
    m_line.draw(m_done, m_total, words);
}

} // namespace kestrine
