#include "input/user_buffer.h"
#include "worldgen/record.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using worldgen::listField;

// A field of a length that need not fit its text.
std::string field(uint32_t length, const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i < 4; ++i) {
        bytes += static_cast<char>(length >> (8 * i));
    }
    return bytes + text;
}

// The host found in a content, or why there is none.
std::string hostIn(worldgen::PayloadFields fields, size_t size = SIZE_MAX) {
    fields.type = 0x80000007;
    const std::string text = worldgen::makePayload(fields).substr(0, size);
    // On the heap in its exact size, so that a sanitizer sees every byte read beyond it.
    const std::vector<uint8_t> payload(text.begin(), text.end());
    std::string_view host;
    uint32_t type = 0;
    const HostResult result = findHost(payload, host, type);
    EXPECT_TRUE(result == HostResult::None || type == 0x80000007);
    return (result == HostResult::None ? "none" : std::string(host)) +
           (result == HostResult::Unterminated ? " unterminated" : "");
}

TEST(UserBuffer, FindsHostInBothForms) {
    const std::string host = listField("host", "a.com");
    const std::string xml = "<?xm<_f n=\"host\">";
    const std::pair<std::string, const char*> found[] = {
        {host, "a.com"},
        {field(13, "host:abcdefg#"), "abcdefg"}, // the last byte is not looked at
        {listField("url", "host:/x") + field(0, "") + field(3, "hos") + host, "a.com"},
        {listField("host", "c:80") + host, "c:80"},
        {"<?XM</_f><_f n=\"hos\">x</_f><_f n=\"host\">a<b></_f>" + xml + "e</_f>", "a<b>"},
        {xml + "d.com</_F>", "d.com</_F> unterminated"}};
    for (const auto& [content, expected] : found) {
        EXPECT_EQ(hostIn({content, 1, 1, 2, {}}), expected) << content;
    }
    // Other names; an empty host, which ends the search; lengths; other tags and starts.
    for (const std::string& content :
         {listField("Host", "a") + listField("hosts", "a") + listField("hostname", "b"),
          listField("host", "") + host, field(5, "host:") + host, field(8, "host:ab"),
          field(0xFFFFFFFC, "url:") + host, std::string("\1\0\0", 3),
          xml + "</_f>" + xml + "e</_f>", std::string("<?xm<_F n=\"host\">d.com</_f>"),
          " " + xml + "d</_f>", std::string("<?x")}) {
        EXPECT_EQ(hostIn({content, 1, 1, 2, {}}), "none") << content;
    }
    EXPECT_EQ(hostIn({host, 1, 31 << 8, 2, 0xFFFFFFFF}), "a.com"); // past the payload
    EXPECT_EQ(hostIn({host, 1, 31, 2, {}}), "none");               // the kind
    EXPECT_EQ(hostIn({host, 1, 1, 2, 10}), "none");
    EXPECT_EQ(hostIn({xml + "d</_f>", 1, 1, 2, 16}), "none");
    for (const size_t size : {0U, 76U, 365U, 370U, 371U, 374U}) {
        EXPECT_EQ(hostIn({host, 1, 1, 2, {}}, size), "none") << size;
    }
}

} // namespace
} // namespace kestrine
