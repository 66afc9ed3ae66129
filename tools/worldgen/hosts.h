// The hosts that a world's users visit.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace worldgen {

// Distinct, realistic looking host names with one fixed type value each. Name and type depend on
// the host's index (and the name on the number of long hosts, the type on the number of types)
// alone, never on a seed: whoever appends to a world with the same settings meets the same hosts.
//
// Among the names are subdomains, second-level domains, addresses, ports, mixed case, and pairs
// that differ in case only. Long hosts come in threes that share their first 259 bytes: one of 260
// bytes, one of 300 and one of exactly 259.
class HostCatalog {
public:
    // hosts: 1 to 2^24; types: at least 1; longHosts: so many that 11 * longHosts <= hosts.
    HostCatalog(std::uint32_t hosts, std::uint32_t types, std::uint32_t longHosts);

    std::uint32_t size() const { return static_cast<std::uint32_t>(m_types.size()); }
    std::uint32_t type(std::uint32_t index) const { return m_types[index]; }
    std::string_view name(std::uint32_t index) const {
        return std::string_view(m_text).substr(m_begin[index], m_begin[index + 1] - m_begin[index]);
    }

private:
    std::string m_text; // all names, one after the other
    std::vector<std::uint64_t> m_begin;
    std::vector<std::uint32_t> m_types;
};

// The type value of type number `slot` (0, 1, ...): small values, 0 and one above 2^31 among them.
std::uint32_t typeValue(std::uint32_t slot);

} // namespace worldgen
