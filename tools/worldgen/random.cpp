#include "worldgen/random.h"

#include <cmath>
#include <stdexcept>

namespace worldgen {

namespace {

constexpr std::uint32_t maxSize = 1u << 24;
constexpr double weightOfFirst = 68719476736.0; // 2^36: size * weight stays below 2^60

// rank^(sixteenths / 16) from square roots and products, which IEEE 754 rounds correctly
// everywhere; pow() is not the same in every C library.
double rankPower(double rank, int sixteenths) {
    double base = std::sqrt(std::sqrt(std::sqrt(std::sqrt(rank))));
    double result = 1.0;
    for (int bits = sixteenths; bits != 0; bits >>= 1) {
        if ((bits & 1) != 0) {
            result *= base;
        }
        base *= base;
    }
    return result;
}

} // namespace

ZipfTable::ZipfTable(std::uint32_t size, double exponent) {
    if (size == 0 || size > maxSize || !(exponent >= 0.0 && exponent <= 4.0)) {
        throw std::invalid_argument("Zipf table: size 1 to 2^24, exponent 0 to 4");
    }
    int sixteenths = static_cast<int>(std::lround(exponent * 16.0));
    std::vector<std::uint64_t> share(size); // weight * size, compared with the total weight
    std::uint64_t total = 0;
    for (std::uint32_t i = 0; i < size; ++i) {
        auto weight =
            static_cast<std::uint64_t>(weightOfFirst / rankPower(double(i) + 1.0, sixteenths));
        weight = weight == 0 ? 1 : weight;
        total += weight;
        share[i] = weight * size;
    }
    std::vector<std::uint32_t> poor;
    std::vector<std::uint32_t> rich;
    m_slots.reserve(size);
    for (std::uint32_t i = 0; i < size; ++i) {
        (share[i] < total ? poor : rich).push_back(i);
        m_slots.push_back({i, UINT32_MAX, i});
    }
    while (!poor.empty() && !rich.empty()) {
        std::uint32_t low = poor.back();
        std::uint32_t high = rich.back();
        poor.pop_back();
        double part = static_cast<double>(share[low]) / static_cast<double>(total);
        m_slots[low].threshold = static_cast<std::uint32_t>(part * 4294967295.0);
        m_slots[low].alias = high;
        share[high] -= total - share[low];
        if (share[high] < total) {
            rich.pop_back();
            poor.push_back(high);
        }
    }
}

} // namespace worldgen
