#include "storage/url_key.h"

#include <array>
#include <bit>
#include <utility>

namespace kestrine {
namespace {

constexpr size_t g_round = 12; // bytes that one round of the main loop takes

// Keys are stored, and files are ordered by them: no constant here can ever change.
struct State {
    uint32_t a;
    uint32_t b;
    uint32_t c;

    void mix() {
        a -= c, a ^= std::rotl(c, 4), c += b;
        b -= a, b ^= std::rotl(a, 6), a += c;
        c -= b, c ^= std::rotl(b, 8), b += a;
        a -= c, a ^= std::rotl(c, 16), c += b;
        b -= a, b ^= std::rotl(a, 19), a += c;
        c -= b, c ^= std::rotl(b, 4), b += a;
    }
    void finish() {
        c ^= b, c -= std::rotl(b, 14);
        a ^= c, a -= std::rotl(c, 11);
        b ^= a, b -= std::rotl(a, 25);
        c ^= b, c -= std::rotl(b, 16);
        a ^= c, a -= std::rotl(c, 4);
        b ^= a, b -= std::rotl(a, 14);
        c ^= b, c -= std::rotl(b, 24);
    }
};

// The first four of `length` bytes as a word; bytes that are not there count as 0.
uint32_t loadTail(const uint8_t* bytes, size_t length) {
    if (length >= 4) {
        return loadLittle<uint32_t>(bytes);
    }
    uint32_t word = 0;
    for (size_t i = 0; i < length; ++i) {
        word |= uint32_t{bytes[i]} << (8 * i);
    }
    return word;
}

// What remains of the bytes for the final step is left to addTail(state, key, length), 1 to 12.
template <typename AddTail>
State hashed(ByteView bytes, uint32_t primary, uint32_t secondary, const AddTail& addTail) {
    const uint8_t* key = bytes.data();
    size_t length = bytes.size();
    const uint32_t start = 0xdeadbeef + static_cast<uint32_t>(length) + primary;
    State state{start, start, start + secondary};
    // Little-endian whatever the machine, so that files can be carried to another.
    for (; length > g_round; length -= g_round, key += g_round) {
        state.a += loadLittle<uint32_t>(key);
        state.b += loadLittle<uint32_t>(key + 4);
        state.c += loadLittle<uint32_t>(key + 8);
        state.mix();
    }
    // Only an empty key skips the final step.
    if (length > 0) {
        addTail(state, key, length);
        state.finish();
    }
    return state;
}

// Key order is that of the first hash, then of the second.
uint64_t joined(uint32_t primary, uint32_t secondary) {
    return (uint64_t{primary} << 32) + secondary;
}

// What is left of the first 8, and of the next 4 bytes of a round in which there are so many.
constexpr uint64_t ones(size_t bytes) {
    return bytes >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * bytes)) - 1;
}
constexpr auto g_masks = [] {
    std::array<std::pair<uint64_t, uint32_t>, g_round + 1> masks{};
    for (size_t length = 0; length <= g_round; ++length) {
        masks[length] = {ones(length), static_cast<uint32_t>(ones(length < 8 ? 0 : length - 8))};
    }
    return masks;
}();

} // namespace

void hashlittle2(const uint8_t* bytes, size_t size, uint32_t* primary, uint32_t* secondary) {
    const State state = hashed({bytes, size}, *primary, *secondary,
                               [](State& last, const uint8_t* key, size_t length) {
                                   last.a += loadTail(key, length);
                                   last.b += length > 4 ? loadTail(key + 4, length - 4) : 0;
                                   last.c += length > 8 ? loadTail(key + 8, length - 8) : 0;
                               });
    *primary = state.c;
    *secondary = state.b;
}

uint64_t urlKeyReadingOn(ByteView bytes) {
    const State state = hashed(bytes, 0, 0, [](State& last, const uint8_t* key, size_t length) {
        const auto& [low, high] = g_masks[length];
        const uint64_t words = loadLittle<uint64_t>(key) & low;
        last.a += static_cast<uint32_t>(words);
        last.b += static_cast<uint32_t>(words >> 32);
        last.c += loadLittle<uint32_t>(key + 8) & high;
    });
    return joined(state.c, state.b);
}

uint64_t urlKey(ByteView bytes) {
    uint32_t primary = 0;
    uint32_t secondary = 0;
    hashlittle2(bytes.data(), bytes.size(), &primary, &secondary);
    return joined(primary, secondary);
}

} // namespace kestrine
