// What is due, in units that processes of their own can carry out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrine::build {

enum class UnitKind { Check, Day, Week, Month };

// What is due of a unit; a check is due as a whole.
struct Steps {
    bool read = false;  // logs
    bool merge = false; // into its file, or its file is to be built or counted anew
    bool lists = false;

    [[nodiscard]] bool any() const { return read || merge || lists; }
    friend bool operator==(const Steps&, const Steps&) = default;
};

struct PlannedUnit {
    UnitKind kind = UnitKind::Check;
    std::string account; // the directory's name
    std::string begin;   // "20240305", first date; of a check none
    std::string end;
    Steps steps;
    std::vector<size_t> needs; // places of units in the plan, all before this one
    uint64_t files = 0;        // that it will read
    uint64_t bytes = 0;        // in these, as far as they are there already

    friend bool operator==(const PlannedUnit&, const PlannedUnit&) = default;
};

struct Plan {
    // Each behind all that it needs; among those that nothing keeps waiting the one first from
    // which most is to be read up to the end.
    std::vector<PlannedUnit> units;
    // Accounts of which not all can be told before their check.
    std::vector<std::string> unclear;
    // Lines of the service's classes about what is wrong.
    std::vector<std::string> reports;
};

// "check", "day", "week", "month".
[[nodiscard]] const char* kindName(UnitKind kind);
// "day/acme/20240305": names a unit in every plan, as a text in UTF-8.
[[nodiscard]] std::string idOf(const PlannedUnit& unit);
// The words behind "urlbuild" that carry the unit out, in ASCII, if the program's version is the
// one that has made the plan.
[[nodiscard]] std::vector<std::string> argumentsOf(const PlannedUnit& unit);
// "read, merge, lists"
[[nodiscard]] std::vector<std::string> stepNames(const PlannedUnit& unit);

// Brings units, of which each stands behind all that it needs, into the order of `Plan::units`.
[[nodiscard]] std::vector<PlannedUnit> ordered(const std::vector<PlannedUnit>& units);

} // namespace kestrine::build
