#include "worldgen/record_maker.h"

#include <array>

#include <zlib.h>

#include "worldgen/bytes.h"

namespace worldgen {

namespace {

constexpr int headCount = 16;
constexpr int tailCount = 64;
constexpr std::uint32_t firstSecond = 1330000000; // of the first record's time field

constexpr std::array<std::string_view, 4> agents = {
    "Mozilla/5.0 (Windows NT 6.1; WOW64) AppleWebKit/535.11 (KHTML, like Gecko) Safari/535.11",
    "Mozilla/4.0 (compatible; MSIE 8.0; Windows NT 5.1; Trident/4.0; .NET CLR 2.0.50727)",
    "Mozilla/5.0 (X11; Linux x86_64; rv:10.0) Gecko/20100101 Firefox/10.0", "updater/2.7"};
constexpr std::array<std::string_view, 2> accepts = {
    "text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8", "image/png,image/*;q=0.8"};
constexpr std::array<std::string_view, 4> methods = {"GET", "POST", "HEAD", "CONNECT"};
constexpr std::array<std::string_view, 4> xmlStarts = {"<?xml version=\"1.0\" encoding=\"utf-8\"?>",
                                                       "<?XML version=\"1.0\"?>", "<?xml?>\r\n",
                                                       "<?Xm l ?>"};

std::string hexText(std::uint64_t bits) {
    std::string text;
    for (int i = 0; i < 16; ++i, bits >>= 4) {
        text += "0123456789abcdef"[bits & 15];
    }
    return text;
}

std::string field(ContentForm form, std::string_view name, std::string_view value) {
    if (form == ContentForm::List) {
        return listField(name, value);
    }
    std::string text = "<_f n=\"";
    return text.append(name).append("\">").append(value).append("</_f>");
}

std::string makeHead(ContentForm form, std::uint32_t choice) {
    std::string text;
    if (form == ContentForm::Xml) {
        text.append(xmlStarts[choice % xmlStarts.size()]).append("<_r>");
    } else if (choice % 3 == 0) {
        appendLe32(text, 0); // an empty field
    } else if (choice % 3 == 1) {
        appendLe32(text, 4);
        text += "host"; // too short to be the host field
    }
    text += field(form, "method", methods[choice / 4 % methods.size()]);
    return choice % 2 == 0 ? text : text + field(form, "hostname", "pc-" + std::to_string(choice));
}

ContentPool::Tail makeTail(ContentForm form, std::uint32_t choice, Random& random) {
    ContentPool::Tail tail;
    std::string path = "/";
    for (std::uint32_t parts = random.below(5); parts != 0; --parts) {
        path += hexText(random.next()).substr(0, 3 + random.below(9)) + "/";
    }
    path += "item?id=";
    tail.text = field(form, "url", path + std::string(ContentPool::idBytes, '0'));
    tail.idOffset = tail.text.find("item?id=") + 8;
    tail.text += field(form, "agent", agents[random.below(agents.size())]);
    tail.text += field(form, "accept", accepts[choice % accepts.size()]);
    tail.text += field(form, "language", "en-us,en;q=0.5");
    if (choice % 4 != 1) {
        std::string cookie = "session=" + hexText(random.next()) + "; visitor=";
        for (std::uint32_t parts = 1 + random.below(6); parts != 0; --parts) {
            cookie += hexText(random.next());
        }
        tail.text += field(form, "cookie", cookie);
    }
    if (choice % 4 > 1) {
        tail.text += field(form, "referer", "http://www.example.net" + path);
    }
    if (choice % 8 == 3) {
        tail.text += field(form, "host", "second.host.invalid"); // the first one counts
    }
    if (form == ContentForm::Xml) {
        tail.text += "</_r>";
    }
    return tail;
}

void storeText(std::string& at, std::size_t offset, std::string_view text) {
    at.replace(offset, text.size(), text);
}

} // namespace

ContentPool::ContentPool() {
    Random random(20120313);
    for (ContentForm form : {ContentForm::List, ContentForm::Xml}) {
        for (std::uint32_t i = 0; i < headCount; ++i) {
            m_heads[int(form)].push_back(makeHead(form, i));
        }
        for (std::uint32_t i = 0; i < tailCount; ++i) {
            m_tails[int(form)].push_back(makeTail(form, i, random));
        }
    }
}

const std::string& ContentPool::head(ContentForm form, std::uint32_t choice) const {
    return m_heads[int(form)][choice % headCount];
}

const ContentPool::Tail& ContentPool::tail(ContentForm form, std::uint32_t choice) const {
    return m_tails[int(form)][choice % tailCount];
}

RecordMaker::RecordMaker(const HostCatalog& hosts, const ContentPool& pool,
                         std::string_view account, int device, std::uint64_t seed)
    : m_hosts(hosts), m_pool(pool), m_random(seed), m_front(recordHeadBytes + contentOffset, '\0'),
      m_firstTail(m_random.below(tailCount)), m_skipTurn(m_random.below(skipKindCount)) {
    std::string user(account.substr(0, 31));
    storeLe32(m_front.data(), userBufferRecord);
    char* payload = m_front.data() + recordHeadBytes;
    storeLe32(payload + deviceOffset, static_cast<std::uint32_t>(device));
    storeLe32(payload + clientOffset, 0x0A000000u + static_cast<std::uint32_t>(device));
    storeText(m_front, recordHeadBytes + userOffset, user);
    storeText(m_front, recordHeadBytes + computerOffset, "PC-" + std::to_string(device));
    storeText(m_front, recordHeadBytes + processOffset, "C:\\Program Files\\browser.exe");
}

void RecordMaker::beginPayload(std::string& raw, std::uint32_t host) {
    static constexpr std::array<std::uint32_t, 8> kinds = {1, 1, 1, 0, 2, 30, 32, 0x1F00};
    auto bits = static_cast<std::uint32_t>(m_random.next());
    std::size_t begin = raw.size() + recordHeadBytes;
    raw += m_front;
    char* payload = raw.data() + begin;
    storeLe32(payload, firstSecond + m_serial / 8);
    storeLe32(payload + serialOffset, m_serial++);
    storeLe32(payload + serverOffset, static_cast<std::uint32_t>(mix64(host)));
    storeLe32(payload + portsOffset, (bits & 0x3FFF) + 0xC000 + (80u << 16));
    storeLe32(payload + typeOffset, m_hosts.type(host));
    storeLe32(payload + kindOffset, kinds[bits >> 14 & 7]);
    storeLe32(payload + netActionOffset, 2 + (bits >> 17 & 0x7FFF) % 3);
}

void RecordMaker::appendContent(std::string& raw, std::uint32_t host, std::uint32_t choices) {
    ContentForm form = (choices & 1) != 0 ? ContentForm::Xml : ContentForm::List;
    const ContentPool::Tail& tail = m_pool.tail(form, m_firstTail + (choices >> 1 & 7));
    std::string_view name = m_hosts.name(host);
    raw += m_pool.head(form, choices >> 8);
    if (form == ContentForm::Xml) {
        raw.append("<_f n=\"host\">").append(name).append("</_f>");
    } else {
        appendLe32(raw, static_cast<std::uint32_t>(name.size() + 6));
        raw.append("host:").append(name).append(1, '\0');
    }
    std::size_t id = raw.size() + tail.idOffset;
    raw += tail.text;
    std::uint64_t bits = m_random.next();
    for (std::size_t i = 0; i < ContentPool::idBytes; ++i, bits >>= 4) {
        raw[id + i] = "0123456789abcdef"[bits & 15];
    }
}

void RecordMaker::visit(std::string& raw, std::uint32_t host) {
    auto choices = static_cast<std::uint32_t>(m_random.next());
    std::size_t begin = raw.size();
    beginPayload(raw, host);
    std::size_t contentBegin = raw.size();
    appendContent(raw, host, choices);
    auto contentLength = static_cast<std::uint32_t>(raw.size() - contentBegin);
    if (choices >> 24 == 0) {
        contentLength += 1000; // runs past the payload and is to be cut at its end
    } else if (choices >> 29 == 1) {
        raw.append((choices >> 24 & 3) + 1, '\0'); // bytes behind the content
    }
    char* record = raw.data() + begin;
    char* payload = record + recordHeadBytes;
    auto length = static_cast<std::uint32_t>(raw.size() - begin - recordHeadBytes);
    storeLe32(payload + contentLengthOffset, contentLength);
    storeLe32(record + 4, length);
    storeLe32(record + 8, static_cast<std::uint32_t>(
                              crc32(0, reinterpret_cast<const Bytef*>(payload), length)));
}

void RecordMaker::skipped(std::string& raw, std::uint32_t host) {
    std::uint32_t turn = m_skipTurn++;
    appendRecord(raw, makeSkipped(static_cast<SkipKind>(turn % skipKindCount), m_hosts.name(host),
                                  m_hosts.type(host), turn / skipKindCount));
}

} // namespace worldgen
