#include "plan.h"

#include "bytes_text.h"
#include "unit_graph.h"
#include "version.h"

namespace kestrine::build {

const char* kindName(UnitKind kind) {
    constexpr const char* names[] = {"check", "day", "week", "month"};
    return names[static_cast<size_t>(kind)];
}

std::string idOf(const PlannedUnit& unit) {
    std::string id = std::string(kindName(unit.kind)) + "/" + utf8Text(unit.account);
    return unit.begin.empty() ? id : id + "/" + unit.begin;
}

std::vector<std::string> argumentsOf(const PlannedUnit& unit) {
    std::vector<std::string> words = {kindName(unit.kind), asciiText(unit.account)};
    if (!unit.begin.empty()) {
        words.push_back(unit.begin);
    }
    words.insert(words.end(), {"--expect", g_version});
    return words;
}

std::vector<std::string> stepNames(const PlannedUnit& unit) {
    std::vector<std::string> names;
    for (const auto& [due, name] :
         {std::pair(unit.kind == UnitKind::Check, "check"), std::pair(unit.steps.read, "read"),
          std::pair(unit.steps.merge, "merge"), std::pair(unit.steps.lists, "lists")}) {
        if (due) {
            names.emplace_back(name);
        }
    }
    return names;
}

std::vector<PlannedUnit> ordered(const std::vector<PlannedUnit>& units) {
    UnitGraph graph(units);
    std::vector<PlannedUnit> result;
    std::vector<size_t> places(units.size());
    result.reserve(units.size());
    while (const std::optional<size_t> unit = graph.next()) {
        places[*unit] = result.size();
        result.push_back(units[*unit]);
        for (size_t& needed : result.back().needs) {
            needed = places[needed];
        }
        graph.finish(*unit);
    }
    return result;
}

} // namespace kestrine::build
