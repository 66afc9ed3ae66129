#include "worldgen/totals.h"

namespace worldgen {

namespace {

bool knowsHosts(const DayTotals& day) {
    return day.distinctHosts == day.hosts.size();
}

void add(DayTotals& day, const DayTotals& later) {
    bool known = knowsHosts(day) && knowsHosts(later);
    day.sums += later.sums;
    for (const auto& [name, host] : later.hosts) {
        HostTotal& total = day.hosts[name];
        total.visits += host.visits;
        total.type = host.type;
    }
    day.distinctHosts = known ? std::optional<std::uint64_t>(day.hosts.size()) : std::nullopt;
}

} // namespace

Sums& Sums::operator+=(const Sums& other) {
    visits += other.visits;
    skipped += other.skipped;
    rawBytes += other.rawBytes;
    storedBytes += other.storedBytes;
    files += other.files;
    return *this;
}

Totals& Totals::operator+=(const Totals& later) {
    for (const auto& [account, days] : later.accounts) {
        for (const auto& [date, day] : days) {
            auto [known, isNew] = accounts[account].try_emplace(date, day);
            if (!isNew) {
                add(known->second, day);
            }
        }
    }
    for (const auto& [node, end] : later.nodes) {
        nodes[node] = end;
    }
    return *this;
}

Sums Totals::sum() const {
    Sums total;
    for (const auto& [account, days] : accounts) {
        for (const auto& [date, day] : days) {
            total += day.sums;
        }
    }
    return total;
}

} // namespace worldgen
