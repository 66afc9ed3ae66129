// Random numbers that are the same on every platform for the same seed. The distributions of the
// standard library are not used: their results differ between libraries.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace worldgen {

// Bijective scrambling of 64 bits (the output step of splitmix64).
inline std::uint64_t mix64(std::uint64_t value) {
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

// FNV-1a: gives names a place in a seed.
inline std::uint64_t hashText(std::string_view text) {
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    }
    return hash;
}

// The splitmix64 generator.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t next() { return mix64(m_state += 0x9E3779B97F4A7C15u); }

    // 0 to bound - 1; the bias of at most bound / 2^32 does not matter here.
    std::uint32_t below(std::uint32_t bound) {
        return static_cast<std::uint32_t>(((next() >> 32) * bound) >> 32);
    }

private:
    std::uint64_t m_state;
};

// Ranks 0 to size - 1, rank r with a probability proportional to 1 / (r + 1)^exponent. One draw
// costs one random number and two table reads (alias method).
class ZipfTable {
public:
    // size: 1 to 2^24. exponent: 0 (all ranks alike) to 4, rounded to a sixteenth so that the table
    // can be computed from correctly rounded operations alone.
    ZipfTable(std::uint32_t size, double exponent);

    std::uint32_t draw(Random& random) const {
        std::uint64_t bits = random.next();
        const Slot& slot = m_slots[((bits >> 32) * m_slots.size()) >> 32];
        return static_cast<std::uint32_t>(bits) < slot.threshold ? slot.rank : slot.alias;
    }

private:
    struct Slot {
        std::uint32_t rank;
        std::uint32_t threshold; // in units of 2^-32
        std::uint32_t alias;
    };
    std::vector<Slot> m_slots;
};

} // namespace worldgen
