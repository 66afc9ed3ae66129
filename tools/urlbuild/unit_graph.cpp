#include "unit_graph.h"

#include <algorithm>
#include <set>

namespace kestrine::build {

UnitGraph::UnitGraph(std::span<const PlannedUnit> units) : m_nodes(units.size()) {
    for (size_t i = 0; i < units.size(); ++i) {
        m_nodes[i].waitsFor = units[i].needs.size();
        for (const size_t needed : units[i].needs) {
            m_nodes[needed].neededBy.push_back(i);
        }
    }
    // Backwards: what needs a unit stands behind it.
    for (size_t i = units.size(); i-- > 0;) {
        Node& node = m_nodes[i];
        for (const size_t user : node.neededBy) {
            node.way = std::max(node.way, m_nodes[user].way);
        }
        node.way += units[i].bytes;
        if (node.waitsFor == 0) {
            m_ready.push({node.way, i});
        }
    }
}

std::optional<size_t> UnitGraph::next() {
    if (m_ready.empty()) {
        return std::nullopt;
    }
    const size_t unit = m_ready.top().unit;
    m_ready.pop();
    return unit;
}

void UnitGraph::finish(size_t unit) {
    for (const size_t user : m_nodes[unit].neededBy) {
        if (--m_nodes[user].waitsFor == 0) {
            m_ready.push({m_nodes[user].way, user});
        }
    }
}

// Those that need it wait for it for ever; only which they are is to be found.
std::vector<size_t> UnitGraph::leaveOut(size_t unit) {
    std::set<size_t> found;
    std::vector<size_t> open = {unit};
    while (!open.empty()) {
        const size_t current = open.back();
        open.pop_back();
        for (const size_t user : m_nodes[current].neededBy) {
            if (!m_nodes[user].leftOut) {
                m_nodes[user].leftOut = true;
                found.insert(user);
                open.push_back(user);
            }
        }
    }
    return {found.begin(), found.end()};
}

} // namespace kestrine::build
