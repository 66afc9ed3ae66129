#include "input/node_path.h"
#include "input/user_buffer.h"
#include "worldgen/record.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrine {
namespace {

using worldgen::listField;
using worldgen::PayloadFields;

// On the heap in its exact size, so that a sanitizer sees every byte read beyond it.
std::vector<uint8_t> exactBytes(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string word(uint32_t value) {
    std::string bytes(4, '\0');
    for (size_t i = 0; i < 4; ++i) {
        bytes[i] = static_cast<char>(value >> (8 * i));
    }
    return bytes;
}

// A field of a length that need not fit its text.
std::string field(uint32_t length, const std::string& text) {
    return word(length) + text;
}

struct HostCase {
    const char* name;
    std::string content;
    std::string host; // empty: none
    std::optional<uint32_t> contentLength = std::nullopt;
};

TEST(UserBuffer, FindsHostInBothForms) {
    const std::string url = listField("url", "host:/x");
    const std::vector<HostCase> cases = {
        {"list", listField("host", "a.com"), "a.com"},
        {"seven bytes and a trailing one", field(13, "host:abcdefg#"), "abcdefg"},
        {"list behind others", url + field(0, "") + field(3, "hos") + listField("host", "b"), "b"},
        {"first of two", listField("host", "x") + listField("host", "y"), "x"},
        {"value with a colon", listField("host", "c.com:8080"), "c.com:8080"},
        {"capital letter", listField("Host", "a"), ""},
        {"name that goes on", listField("hosts", "a") + listField("hostname", "b"), ""},
        {"empty one ends the search", listField("host", "") + listField("host", "b"), ""},
        {"without trailing byte", field(5, "host:") + listField("host", "b"), ""},
        {"shorter than the name", field(4, "host") + field(1, ":"), ""},
        {"past the end by one", field(8, "host:ab"), ""},
        {"past the end before it", field(4000, "url:") + listField("host", "a"), ""},
        {"length near 2^32", field(0xFFFFFFFC, "url:") + listField("host", "a"), ""},
        {"length cut off", std::string("\1\0\0", 3), ""},
        {"content length past the payload", listField("host", "a.com"), "a.com", 0xFFFFFFFF},
        {"content length ends in the host", listField("host", "a.com"), "", 10},
        {"content length 0", listField("host", "a.com"), "", 0},
        {"xml", "<?xml?><_f n=\"host\">d.com</_f>", "d.com"},
        {"xml in capitals", "<?XM><_f n=\"host\">d.com</_f><_f n=\"host\">e</_f>", "d.com"},
        {"xml with closed field before", "<?xM</_f><_f n=\"hos\">x</_f><_f n=\"host\">e</_f>", "e"},
        {"xml with an element inside", "<?xm<_f n=\"host\">a<b></_f>", "a<b>"},
        {"xml tag in capitals", "<?xm<_F n=\"host\">d.com</_f>", ""},
        {"xml without host", "<?xml?><_f n=\"url\">/</_f>", ""},
        {"xml empty host", "<?xm<_f n=\"host\"></_f><_f n=\"host\">e</_f>", ""},
        {"xml host beyond the length", "<?xm<_f n=\"host\">d</_f>", "", 16},
        {"xml form without its start is a list", " <?xm<_f n=\"host\">d</_f>", ""},
        {"start cut off is a list", "<?x", ""},
    };
    for (const HostCase& c : cases) {
        SCOPED_TRACE(c.name);
        PayloadFields fields;
        fields.content = c.content;
        fields.type = 0x80000007;
        fields.contentLength = c.contentLength;
        const auto payload = exactBytes(worldgen::makePayload(fields));
        std::string_view host;
        uint32_t type = 0;
        if (c.host.empty()) {
            EXPECT_EQ(findHost(payload, host, type), HostResult::None);
        } else {
            ASSERT_EQ(findHost(payload, host, type), HostResult::Found);
            EXPECT_EQ(host, c.host);
            EXPECT_EQ(type, 0x80000007U);
        }
    }
}

TEST(UserBuffer, MissingClosingTagIsTold) {
    for (const std::string rest : {"", "d.com</_", "d.com</_F>"}) {
        PayloadFields fields;
        fields.content = "<?xm</_f><_f n=\"host\">" + rest;
        const auto payload = exactBytes(worldgen::makePayload(fields));
        std::string_view text;
        uint32_t type = 0;
        EXPECT_EQ(findHost(payload, text, type), HostResult::Unterminated);
        EXPECT_EQ(text, rest);
    }
}

TEST(UserBuffer, ContentBeginsBehind370Bytes) {
    std::string_view host;
    uint32_t type = 0;
    const std::string whole = worldgen::visitPayload("a.com", 1);
    for (const size_t size : {size_t{0}, size_t{76}, size_t{370}, size_t{371}, size_t{374}}) {
        EXPECT_EQ(findHost(exactBytes(whole.substr(0, size)), host, type), HostResult::None);
    }
    PayloadFields fields;
    fields.content = listField("host", "a.com");
    for (const uint32_t kind : {30U, 31U, 32U, 31U << 8}) {
        fields.kind = kind;
        const auto payload = exactBytes(worldgen::makePayload(fields));
        EXPECT_EQ(findHost(payload, host, type), kind == 31 ? HostResult::None : HostResult::Found);
    }
}

TEST(UserBuffer, WalkStopsAtAnEntryThatDoesNotFit) {
    const std::string good = word(3) + "abc" + word(0) + word(1) + "d";
    for (const std::string& end : {std::string(), std::string("\1\0\0", 3), word(1), word(2) + "x",
                                   word(0xFFFFFFFF) + "x"}) {
        const auto stream = exactBytes(good + end);
        std::vector<std::string> entries;
        size_t offset = 0;
        for (ByteView payload; nextEntry(stream, offset, payload);) {
            entries.emplace_back(asText(payload));
        }
        EXPECT_EQ(entries, (std::vector<std::string>{"abc", "", "d"}));
        EXPECT_EQ(offset, good.size());
    }
}

TEST(NodePath, DateIsTheLastComponent) {
    struct Case {
        std::string path;
        int32_t date; // -1: refused
    };
    for (const Case& c : {Case{"d/log_data/a/devid_1/20120303", 20120303},
                          {"a/20000000", 20000000},
                          {"a/29999999", 29999999},
                          {"a/19999999", -1},
                          {"a/30000000", -1},
                          {"a/x", -1},
                          {"20120303", -1},
                          {"", -1}}) {
        int32_t date = 0;
        EXPECT_EQ(getAccountPathAndDate(c.path, date), c.date < 0 ? -1 : 0) << c.path;
        if (c.date > 0) {
            EXPECT_EQ(date, c.date);
        }
    }
}

} // namespace
} // namespace kestrine
