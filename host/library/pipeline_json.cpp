// Pipelines from JSON, and the values of settings that are given as text.
#include <fmt/format.h>

#include <algorithm>

#include "json_values.h"
#include "pipeline_parts.h"
#include "scansteps/stream.h"
#include "usage_hints.h"

namespace scansteps::host {

namespace {

// Values are converted and copied recursively: JSON nested deeper than any record may be is refused.
Json parseNested(const std::string& text, bool throws)
{
    const auto checkDepth = [](int depth, Json::parse_event_t, Json&) {
        if (depth > 4 * kMaxNesting) throw UsageError{"JSON that is nested too deeply"};
        return true;
    };
    return Json::parse(text, checkDepth, throws);
}

[[noreturn]] void failKey(const std::string& where, const std::string& key,
                          const std::vector<std::string>& known)
{
    if (std::find(known.begin(), known.end(), key) != known.end())
        throw UsageError{fmt::format("{}: the value of \"{}\" is of the wrong type", where, key)};
    throw UsageError{fmt::format("{}: {} is not known{}", where, inQuotes(key), didYouMean(key, known))};
}

PipelineStep stepFromJson(const Json& json)
{
    PipelineStep step;
    if (json.is_string()) {
        step.info = &stepNamed(json.get<std::string>());
        return step;
    }
    if (!json.is_object() || !json.contains("kind") || !json["kind"].is_string())
        throw UsageError{"a step is a kind, or an object with \"kind\""};
    step.info = &stepNamed(json["kind"].get<std::string>());
    for (const auto& [key, value] : json.items()) {
        if (key == "kind") continue;
        if (key == "name" && value.is_string())
            step.name = value.get<std::string>();
        else if (key == "settings" && value.is_object())
            step.settings = valueFromJson(value, Kind::Struct, step.info->kind).as<Struct>();
        else
            failKey(fmt::format("step {}", step.info->kind), key, {"kind", "name", "settings"});
    }
    return step;
}

// "line 3, column 14: number overflow parsing '1e999'", without the parser's tags.
std::string jsonProblem(const std::string& text, const Json::exception& error)
{
    std::string what = error.what();
    if (const auto tag = what.find("] "); what.starts_with('[') && tag != what.npos) what.erase(0, tag + 2);
    constexpr std::string_view kParseError = "parse error at ";
    if (what.starts_with(kParseError)) return what.substr(kParseError.size());
    // The parser gives no position for a number that is too large.
    const auto first = what.find('\''), last = what.rfind('\'');
    const auto at = first < last ? text.find(what.substr(first + 1, last - first - 1)) : text.npos;
    if (at == text.npos) return what;
    const auto line = std::count(text.begin(), text.begin() + std::ptrdiff_t(at), '\n') + 1;
    const auto column = at - (text.rfind('\n', at) + 1) + 1;  // npos + 1 is 0
    return fmt::format("line {}, column {}: {}", line, column, what);
}

Json parseJson(const std::string& text, const std::string& prefix)
{
    try {
        return parseNested(text, true);
    } catch (const Json::exception& error) {
        throw UsageError{prefix + jsonProblem(text, error)};
    }
}

Pipeline pipelineFrom(const Json& json)
{
    if (!json.is_object()) throw UsageError{"a pipeline is an object with \"steps\""};
    Pipeline pipeline;
    for (const auto& [key, value] : json.items()) {
        if (key == "$schema") continue;
        if (key == "settings" && value.is_object())
            pipeline.settings = valueFromJson(value, Kind::Struct, "settings").as<Struct>();
        else if (key == "frames" && value.is_number_integer() && value.get<std::int64_t>() >= 0)
            pipeline.frames = value.get<std::int64_t>();
        else if (key == "steps" && value.is_array())
            for (const Json& step : value) pipeline.steps.push_back(stepFromJson(step));
        else
            failKey("the pipeline", key, {"$schema", "settings", "frames", "steps"});
    }
    if (pipeline.steps.empty()) throw UsageError{"the pipeline has no steps"};
    return pipeline;
}

}  // namespace

std::optional<varitype> valueFromText(const std::string& text, const SettingInfo* setting,
                                      const std::string& where)
{
    if (setting != nullptr && setting->kind == Kind::String) return varitype(text);
    const Json json = parseNested(text, false);
    if (!json.is_discarded()) {
        if (json.is_null() || (json.is_boolean() && !json.get<bool>())) return std::nullopt;
        if (isForcedKind(json)) return valueFromJson(json, where);
        if (setting != nullptr && !setting->presence) return valueFromJson(json, setting->kind, where);
        if (!json.is_array()) return valueFromJson(json, where);
    }
    if (setting != nullptr && !setting->presence)
        throw UsageError{fmt::format("{}: {} is not a value of kind {}", where, inQuotes(text),
                                     kindTypeName(setting->kind))};
    return varitype(text);
}

Pipeline pipelineFromJson(const std::string& text, const std::string& prefix)
{
    return pipelineFrom(parseJson(text, prefix));
}

Pipeline pipelineFromJson(const std::string& text)
{
    return pipelineFromJson(text, "");
}

}  // namespace scansteps::host
