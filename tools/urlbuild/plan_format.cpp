#include "plan_format.h"

#include "bytes_text.h"
#include "version.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>

namespace kestrine::build {

namespace {

using Line = std::array<std::string, 6>;

std::string withDashes(const std::string& date) {
    return date.substr(0, 4) + "-" + date.substr(4, 2) + "-" + date.substr(6);
}

std::string datesOf(const PlannedUnit& unit) {
    if (unit.begin.empty()) {
        return "";
    }
    const std::string begin = withDashes(unit.begin);
    return unit.begin == unit.end ? begin : begin + ".." + withDashes(unit.end);
}

Line lineOf(const PlannedUnit& unit) {
    std::string steps;
    for (const std::string& name : stepNames(unit)) {
        steps += (steps.empty() ? "" : ",") + name;
    }
    return {kindName(unit.kind),        asciiText(unit.account),   datesOf(unit), steps,
            std::to_string(unit.files), std::to_string(unit.bytes)};
}

// Words to the left, numbers to the right.
std::string aligned(const std::vector<Line>& lines) {
    constexpr size_t firstNumber = 4;
    std::array<size_t, std::tuple_size_v<Line>> widths{};
    for (const Line& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    std::string text;
    for (const Line& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            const std::string fill(widths[i] - line[i].size(), ' ');
            text += i == 0 ? "" : "  ";
            text += i < firstNumber ? line[i] + fill : fill + line[i];
        }
        text += "\n";
    }
    return text;
}

std::string summary(const Plan& plan) {
    uint64_t files = 0;
    uint64_t bytes = 0;
    for (const PlannedUnit& unit : plan.units) {
        files += unit.files;
        bytes += unit.bytes;
    }
    return std::to_string(plan.units.size()) + " units are due, which read " +
           std::to_string(files) + " files of " + std::to_string(bytes) + " bytes\n";
}

nlohmann::ordered_json jsonOf(const Plan& plan, const PlannedUnit& unit) {
    nlohmann::ordered_json needs = nlohmann::ordered_json::array();
    for (const size_t needed : unit.needs) {
        needs.push_back(idOf(plan.units[needed]));
    }
    nlohmann::ordered_json object;
    object["id"] = idOf(unit);
    object["kind"] = kindName(unit.kind);
    object["account"] = utf8Text(unit.account);
    if (!unit.begin.empty()) {
        object["begin"] = unit.begin;
        object["end"] = unit.end;
    }
    object["steps"] = stepNames(unit);
    object["needs"] = std::move(needs);
    object["files"] = unit.files;
    object["bytes"] = unit.bytes;
    object["arguments"] = argumentsOf(unit);
    return object;
}

} // namespace

std::string tableText(const Plan& plan) {
    if (plan.units.empty()) {
        return "nothing is due\n";
    }
    std::vector<Line> lines = {{"kind", "account", "dates", "steps", "files", "bytes"}};
    for (const PlannedUnit& unit : plan.units) {
        lines.push_back(lineOf(unit));
    }
    return aligned(lines) + summary(plan);
}

std::string jsonText(const Plan& plan) {
    std::string text = std::string(R"({"format":1,"program":"urlbuild","version":")") + g_version +
                       "\",\n \"units\":[";
    for (const PlannedUnit& unit : plan.units) {
        text += &unit == plan.units.data() ? "\n  " : ",\n  ";
        text += jsonOf(plan, unit).dump();
    }
    return text + "]}\n";
}

} // namespace kestrine::build
