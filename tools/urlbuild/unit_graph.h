// Which unit of a plan is next.
#pragma once

#include "plan.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <queue>
#include <span>
#include <utility>
#include <vector>

namespace kestrine::build {

class UnitGraph {
public:
    // Of units of which each stands behind all that it needs.
    explicit UnitGraph(std::span<const PlannedUnit> units);

    // Takes the unit that nothing keeps waiting and from which most bytes are to be read up to the
    // end of the plan, by the longest way over those that need it; of equals the first. None when
    // all that are left wait for others, or none is left.
    [[nodiscard]] std::optional<size_t> next();
    // A unit taken comes to its end, and what needs it need not wait for it any more.
    void finish(size_t unit);
    // A unit taken will not come to its end: all that need it, on whatever way, are never next.
    // These, ascending.
    std::vector<size_t> leaveOut(size_t unit);

private:
    struct Node {
        uint64_t way = 0; // bytes up to the end, itself among them
        size_t waitsFor = 0;
        bool leftOut = false;
        std::vector<size_t> neededBy;
    };
    struct Ready {
        uint64_t way;
        size_t unit;
        bool operator<(const Ready& other) const {
            return way != other.way ? way < other.way : unit > other.unit;
        }
    };

    std::vector<Node> m_nodes;
    std::priority_queue<Ready> m_ready;
};

} // namespace kestrine::build
