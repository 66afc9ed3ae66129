#include "worldgen/hosts.h"

#include <array>
#include <stdexcept>

#include "worldgen/random.h"

namespace worldgen {

namespace {

constexpr std::uint32_t maxHosts = 1u << 24;
constexpr std::uint32_t hostsPerDomain = 4;
constexpr std::uint32_t domainsTogether = 8; // so many domains' hosts alternate in the index order
constexpr std::uint32_t firstLongHost = 7;   // ranks that even a small world visits
constexpr std::uint32_t longHostStep = 11;
constexpr std::size_t longStemBytes = 259;

constexpr std::array<std::string_view, 20> onsets = {"b", "c", "d", "f",  "g",  "h", "j",
                                                     "k", "l", "m", "n",  "p",  "r", "s",
                                                     "t", "v", "w", "br", "st", "z"};
constexpr std::string_view vowels = "aeiou";
constexpr std::array<std::string_view, 12> wordEnds = {
    "", "", "", "", "-shop", "news", "media", "-online", "lab", "24", "hub", "soft"};
constexpr std::array<std::string_view, 18> topDomains = {
    ".com", ".com", ".com", ".com", ".net",    ".org", ".de",  ".co.uk",  ".fr",
    ".io",  ".cn",  ".ru",  ".jp",  ".com.cn", ".nl",  ".gov", ".com.br", ".info"};
constexpr std::array<std::string_view, 15> subdomains = {
    "mail.",  "cdn.",  "static.", "img1.", "img2.",     "m.",      "api.", "login.",
    "forum.", "news.", "video.",  "ads.",  "track.eu.", "update.", "a1.g."};

std::string syllables(std::uint32_t number, int count) {
    std::string word;
    for (int i = 0; i < count; ++i) {
        std::uint32_t digit = number % 100;
        number /= 100;
        word += onsets[digit / 5];
        word += vowels[digit % 5];
    }
    return word;
}

// The part of a name below its subdomain. Distinct domains have distinct words: multiplying by a
// number prime to the modulus permutes the range, and the syllables can be read back.
std::string domainName(std::uint32_t domain, std::uint64_t hash, bool capital) {
    std::string word =
        domain < 1000000
            ? syllables(static_cast<std::uint32_t>((domain * 610639ull + 314159) % 1000000), 3)
            : syllables(static_cast<std::uint32_t>((domain * 61803399ull + 271828) % 100000000), 4);
    if (capital) {
        word[0] = static_cast<char>(word[0] - 'a' + 'A');
    }
    word += wordEnds[(hash >> 16) % wordEnds.size()];
    word += topDomains[(hash >> 24) % topDomains.size()];
    return word;
}

std::string addressName(std::uint32_t index) {
    static constexpr std::array<const char*, 4> networks = {"10.", "172.", "203.", "61."};
    std::uint32_t bits = index * 0x9E3779B1u & 0xFFFFFFu; // odd factor: a permutation of 24 bits
    return networks[bits & 3] + std::to_string(bits >> 16) + "." +
           std::to_string(bits >> 8 & 0xFF) + "." + std::to_string(bits & 0xFF);
}

std::string ordinaryName(std::uint32_t index) {
    std::uint32_t domain =
        index / (hostsPerDomain * domainsTogether) * domainsTogether + index % domainsTogether;
    std::uint32_t variant = index / domainsTogether % hostsPerDomain;
    std::uint64_t hash = mix64(domain + 77); // 77: plain names lead the lists
    bool mixedCase = hash % 16 == 5;
    if (variant == 3 && domain % 29 == 11) {
        return addressName(index);
    }
    std::string_view first = (hash & 0x300) != 0 ? "www." : "";
    if (variant == 0) {
        return std::string(first) + domainName(domain, hash, mixedCase);
    }
    if (variant == 3 && mixedCase) {
        std::string name = std::string(first) + domainName(domain, hash, false);
        for (char& c : name) {
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        }
        return name;
    }
    std::string name(subdomains[((hash >> 32) + variant) % subdomains.size()]);
    name += domainName(domain, hash, false);
    return variant == 2 && hash % 37 == 0 ? name + ":8080" : name;
}

std::string longName(std::uint32_t number) {
    std::string name = "deep" + std::to_string(number / 3) + ".";
    while (name.size() < longStemBytes) {
        name += "level" + std::to_string(name.size()) + ".";
    }
    name.resize(longStemBytes - 1);
    name += 'q'; // neither a dot nor a digit at the cut
    switch (number % 3) {
    case 0:
        return name + "x";
    case 1:
        return name + std::string(30, 'y') + ".longer.net";
    default:
        return name;
    }
}

} // namespace

std::uint32_t typeValue(std::uint32_t slot) {
    static constexpr std::array<std::uint32_t, 6> values = {1, 2, 7, 4000000000u, 0, 33};
    return slot < values.size() ? values[slot] : 100 + slot;
}

HostCatalog::HostCatalog(std::uint32_t hosts, std::uint32_t types, std::uint32_t longHosts) {
    if (hosts == 0 || hosts > maxHosts || types == 0 || longHosts > hosts / longHostStep) {
        throw std::invalid_argument("hosts 1 to 2^24, types at least 1, 11 * long hosts <= hosts");
    }
    m_begin.reserve(std::size_t(hosts) + 1);
    m_types.reserve(hosts);
    m_text.reserve(std::size_t(hosts) * 20);
    for (std::uint32_t index = 0; index < hosts; ++index) {
        m_begin.push_back(m_text.size());
        std::uint32_t past = index - firstLongHost;
        bool isLong =
            index >= firstLongHost && past % longHostStep == 0 && past / longHostStep < longHosts;
        m_text += isLong ? longName(past / longHostStep) : ordinaryName(index);
        m_types.push_back(typeValue(static_cast<std::uint32_t>(mix64(index) % types)));
    }
    m_begin.push_back(m_text.size());
}

} // namespace worldgen
