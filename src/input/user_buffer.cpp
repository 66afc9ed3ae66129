#include "input/user_buffer.h"

#include <algorithm>
#include <functional>

namespace kestrine {

namespace {

constexpr size_t g_lengthSize = 4;
constexpr std::string_view g_hostName = "host:";

std::string_view contentOf(ByteView payload) {
    const auto length = loadLittle<uint32_t>(payload.data() + g_payloadContentLengthOffset);
    // `substr` cuts a length that runs past the payload.
    return asText(payload.subspan(g_payloadContentOffset)).substr(0, length);
}

bool isXml(std::string_view content) {
    return content.size() >= 4 && content[0] == '<' && content[1] == '?' &&
           (content[2] == 'x' || content[2] == 'X') && (content[3] == 'm' || content[3] == 'M');
}

// XML content is full of the characters of the tag, so that a search for its first one stops at
// every element; skipping by the tag's length looks at about every tenth character only.
size_t findOpenTag(std::string_view content) {
    static const std::boyer_moore_horspool_searcher searcher(g_hostOpenTag.begin(),
                                                             g_hostOpenTag.end());
    return static_cast<size_t>(std::search(content.begin(), content.end(), searcher) -
                               content.begin());
}

HostResult findXmlHost(std::string_view content, std::string_view& host) {
    const size_t tag = findOpenTag(content);
    if (tag == content.size()) {
        return HostResult::None;
    }
    host = content.substr(tag + g_hostOpenTag.size());
    const size_t end = host.find(g_hostCloseTag);
    if (end == std::string_view::npos) {
        return HostResult::Unterminated;
    }
    host = host.substr(0, end);
    return host.empty() ? HostResult::None : HostResult::Found;
}

HostResult findFieldHost(std::string_view content, std::string_view& host) {
    while (content.size() >= g_lengthSize) {
        const size_t size = loadLittle<uint32_t>(asBytes(content).data());
        content.remove_prefix(g_lengthSize);
        // A field that runs out of the text: none behind it can be found.
        if (size > content.size()) {
            return HostResult::None;
        }
        const std::string_view field = content.substr(0, size);
        if (field.starts_with(g_hostName)) {
            // The byte behind the value is not part of it.
            if (size <= g_hostName.size() + 1) {
                return HostResult::None;
            }
            host = field.substr(g_hostName.size(), size - g_hostName.size() - 1);
            return HostResult::Found;
        }
        content.remove_prefix(size);
    }
    return HostResult::None;
}

} // namespace

bool nextEntry(ByteView stream, size_t& offset, ByteView& payload) {
    if (offset > stream.size() || stream.size() - offset < g_lengthSize) {
        return false;
    }
    const size_t length = loadLittle<uint32_t>(stream.data() + offset);
    const size_t begin = offset + g_lengthSize;
    if (length > stream.size() - begin) {
        return false;
    }
    payload = stream.subspan(begin, length);
    offset = begin + length;
    return true;
}

HostResult findHost(ByteView payload, std::string_view& host, uint32_t& type) {
    // From here on every field before the content lies inside the payload.
    if (payload.size() <= g_payloadContentOffset ||
        loadLittle<uint32_t>(payload.data() + g_payloadKindOffset) == g_kindWithoutHost) {
        return HostResult::None;
    }
    type = loadLittle<uint32_t>(payload.data() + g_payloadTypeOffset);
    const std::string_view content = contentOf(payload);
    return isXml(content) ? findXmlHost(content, host) : findFieldHost(content, host);
}

} // namespace kestrine
