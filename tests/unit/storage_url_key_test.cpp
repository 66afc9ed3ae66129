#include "storage/url_key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <random>
#include <string>
#include <vector>

namespace kestrine {
namespace {

struct Published {
    std::string_view key;
    uint32_t primary; // seeds
    uint32_t secondary;
    uint32_t c; // results
    uint32_t b;
};

TEST(UrlKey, EqualsThePublishedResults) {
    constexpr std::string_view address = "Four score and seven years ago";
    const Published table[] = {
        {"", 0, 0, 0xdeadbeef, 0xdeadbeef},
        {"", 0, 0xdeadbeef, 0xbd5b7dde, 0xdeadbeef},
        {"", 0xdeadbeef, 0xdeadbeef, 0x9c093ccd, 0xbd5b7dde},
        {address, 0, 0, 0x17770551, 0xce7226e6},
        {address, 0, 1, 0xe3607cae, 0xbd371de4},
        {address, 1, 0, 0xcd628161, 0x6cbea4b3},
    };
    for (const Published& row : table) {
        uint32_t primary = row.primary;
        uint32_t secondary = row.secondary;
        const ByteView key = asBytes(row.key);
        hashlittle2(key.data(), key.size(), &primary, &secondary);
        EXPECT_EQ(primary, row.c) << row.key << " " << row.primary << " " << row.secondary;
        EXPECT_EQ(secondary, row.b) << row.key << " " << row.primary << " " << row.secondary;
    }
    EXPECT_EQ(urlKey(asBytes(address)), 0x17770551ce7226e6u);
    EXPECT_EQ(urlKey({}), 0xdeadbeefdeadbeefu);
}

// The algorithm byte by byte: every byte is added to its word at its place.
uint64_t byteWiseKey(ByteView key) {
    std::array<uint32_t, 3> s;
    s.fill(0xdeadbeef + static_cast<uint32_t>(key.size()));
    size_t position = 0;
    for (size_t left = key.size(); left > 0;) {
        const size_t taken = std::min<size_t>(left, 12);
        for (size_t i = 0; i < taken; ++i) {
            s[i / 4] += uint32_t{key[position++]} << (8 * (i % 4));
        }
        left -= taken;
        if (left > 0) {
            static constexpr int rotations[] = {4, 6, 8, 16, 19, 4};
            for (size_t i = 0; i < 6; ++i) {
                uint32_t& x = s[i % 3];
                uint32_t& y = s[(i + 1) % 3];
                uint32_t& z = s[(i + 2) % 3];
                x = (x - z) ^ std::rotl(z, rotations[i]);
                z += y;
            }
        } else {
            static constexpr int rotations[] = {14, 11, 25, 16, 4, 14, 24};
            for (size_t i = 0; i < 7; ++i) {
                uint32_t& x = s[(i + 2) % 3];
                const uint32_t y = s[(i + 1) % 3];
                x = (x ^ y) - std::rotl(y, rotations[i]);
            }
        }
    }
    return (uint64_t{s[2]} << 32) + s[1];
}

TEST(UrlKey, EveryLengthAndAlignmentGivesTheByteWiseResult) {
    std::mt19937 random(1);
    std::vector<uint8_t> text(64);
    for (uint8_t& byte : text) {
        byte = static_cast<uint8_t>(random());
    }
    for (size_t length = 1; length <= text.size(); ++length) {
        const ByteView key = ByteView(text).first(length);
        const uint64_t expected = byteWiseKey(key);
        for (size_t offset = 0; offset < 8; ++offset) {
            std::vector<uint8_t> moved(offset + length); // no byte behind: over-reads show up
            std::ranges::copy(key, moved.begin() + static_cast<std::ptrdiff_t>(offset));
            EXPECT_EQ(urlKey(ByteView(moved).subspan(offset)), expected) << length << " " << offset;
        }
    }
}

TEST(UrlKey, EveryByteMatters) {
    const std::string host = "www.example.org";
    std::string other = host;
    other[0] = 'W';
    EXPECT_NE(urlKey(asBytes(host)), urlKey(asBytes(other)));
    EXPECT_NE(urlKey(asBytes(host)), urlKey(asBytes(host + std::string(1, '\0'))));
}

} // namespace
} // namespace kestrine
