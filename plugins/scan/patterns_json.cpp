// patterns.json: writing, and reading with checks that the list is complete.
#include <array>
#include <nlohmann/json.hpp>

#include "checked_json.h"
#include "patterns.h"

namespace scansteps::scan {
namespace {

constexpr const char* kWhat = "patterns";
constexpr std::array kKindNames = {"white", "black", "gray", "phase"};

nlohmann::ordered_json jsonOf(const Pattern& pattern, const std::string& file)
{
    nlohmann::ordered_json out;
    if (!file.empty()) out["file"] = file;
    out["kind"] = kKindNames[static_cast<std::size_t>(pattern.kind)];
    const bool isGray = pattern.kind == PatternKind::Gray;
    if (!isGray && pattern.kind != PatternKind::Phase) return out;
    out["axis"] = pattern.axis == Axis::Column ? "column" : "row";
    out[isGray ? "bit" : "shift"] = pattern.number;
    if (isGray) out["inverse"] = pattern.inverse;
    return out;
}

Pattern patternOf(const nlohmann::json& in, const std::string& path)
{
    Pattern pattern;
    const auto kind = in["kind"].get<std::string>();
    for (std::size_t i = 0; i < kKindNames.size(); ++i)
        if (kind == kKindNames[i]) pattern.kind = static_cast<PatternKind>(i);
    const bool isGray = pattern.kind == PatternKind::Gray;
    if (!isGray && pattern.kind != PatternKind::Phase) return pattern;
    const char* number = isGray ? "bit" : "shift";
    if (!in.contains(number)) failAt(kWhat, path, std::string("has no \"") + number + "\"");
    pattern.number = in[number].get<int>();
    pattern.axis = in.value("axis", "column") == "row" ? Axis::Row : Axis::Column;
    pattern.inverse = isGray && in.value("inverse", false);
    return pattern;
}

}  // namespace

std::string patternSeriesJson(const PatternSeries& series)
{
    nlohmann::ordered_json out;
    out["size"] = {series.width, series.height};
    out["period"] = series.period;
    out["shifts"] = series.shifts;
    out["rows"] = series.hasRows;
    out["patterns"] = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < series.patterns.size(); ++i)
        out["patterns"].push_back(
            jsonOf(series.patterns[i], i < series.files.size() ? series.files[i] : std::string()));
    return out.dump(2) + "\n";
}

PatternSeries parsePatternSeries(std::string_view text)
{
    const nlohmann::json in = checkedJson(text, kPatternsSchema, kWhat);
    PatternSeries series =
        makePatternSeries(in["size"][0], in["size"][1], in["period"], in["shifts"], in.value("rows", false));
    const PatternSeries complete = series;
    series.patterns.clear();
    for (const auto& entry : in["patterns"]) {
        const std::string path = "/patterns/" + std::to_string(series.patterns.size());
        const Pattern pattern = patternOf(entry, path);
        if (complete.indexOf(pattern) < 0)
            failAt(kWhat, path, describe(pattern) + " has no place in the series");
        if (series.indexOf(pattern) >= 0) failAt(kWhat, path, describe(pattern) + " is there twice");
        series.patterns.push_back(pattern);
        series.files.push_back(entry.value("file", ""));
    }
    for (const Pattern& pattern : complete.patterns)
        if (series.indexOf(pattern) < 0) failAt(kWhat, "/patterns", describe(pattern) + " is missing");
    return series;
}

PatternSeries readPatternSeries(const std::string& fileName)
{
    return parsePatternSeries(readTextFile(fileName, kWhat));
}

}  // namespace scansteps::scan
