// Pipelines from JSON and from one-line descriptions.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "descriptors.h"
#include "json_values.h"
#include "platform.h"
#include "scansteps/host.h"
#include "scansteps/settings.h"
#include "scansteps/stream.h"
#include "setting_lookup.h"
#include "usage_hints.h"

namespace scansteps::host {

namespace {

const StepInfo& stepNamed(const std::string& name)
{
    if (const StepInfo* info = findStep(name)) return *info;
    std::vector<std::string> names;
    for (const StepInfo& info : stepTable()) names.emplace_back(info.kind);
    throw UsageError{fmt::format("there is no kind {}{}", inQuotes(name),
                                 didYouMean(name, names, " (scansteps steps lists them)"))};
}

// Values are converted and copied by recursion: what nests deeper than any record may is refused.
Json parseNested(const std::string& text, bool throws)
{
    const auto checkDepth = [](int depth, Json::parse_event_t, Json&) {
        if (depth > 4 * kMaxNesting) throw UsageError{"JSON that is nested too deeply"};
        return true;
    };
    return Json::parse(text, checkDepth, throws);
}

// A value given as text, of the kind that the table names, or of the kind it looks like.
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

void setPath(Struct& settings, std::string_view path, const varitype& value)
{
    const std::size_t dot = path.find('.');
    const std::string_view key = path.substr(0, dot);
    if (dot == std::string_view::npos) {
        settings.set(key, value);
        return;
    }
    const varitype* family = settings.find(key);
    if (family == nullptr || family->kind() != Kind::Struct) settings.set(key, Struct());
    setPath(settings[key].getv<Struct>(), path.substr(dot + 1), value);
}

// Where a PATH of a description belongs: as it stands, or in the family that knows it.
std::string resolvePath(const std::string& path, const std::vector<const StepInfo*>& among)
{
    if (path.find('.') != std::string::npos || findSettingAmong(among, path) != nullptr) return path;
    std::string found;
    for (const StepInfo* info : among)
        for (const SettingInfo& setting : info->settings)
            if (lastPart(setting.path) == path) {
                if (!found.empty() && found != setting.path)
                    throw UsageError{
                        fmt::format("\"{}\" may be {} or {}: name it in full", path, found, setting.path)};
                found = setting.path;
            }
    return found.empty() ? path : found;
}

struct Assignment
{
    std::string path;
    std::string value;
};

Assignment splitAssignment(const std::string& text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
        throw UsageError{fmt::format("{} is not of the form PATH=VALUE", inQuotes(text))};
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// Words of a description: separated by blanks, "!" a word of its own when it stands alone; quotes keep
// blanks.
std::vector<std::string> splitWords(const std::string& line)
{
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (const char c : line) {
        if (quote != 0) {
            if (c == quote)
                quote = 0;
            else
                word += c;
        } else if (c == '"' || c == '\'') {
            quote = c;
            inWord = true;
        } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            if (inWord) words.push_back(std::exchange(word, {}));
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote != 0) throw UsageError{fmt::format("a {} is not closed in the pipeline description", quote)};
    if (inWord) words.push_back(word);
    return words;
}

// `before` is the word before this one, where it was a setting of the same step.
void addSetting(PipelineStep& step, const std::string& word, const std::string& before)
{
    if (!before.empty() && word.find('=') == std::string::npos) {
        const Assignment cut = splitAssignment(before);
        throw UsageError{
            fmt::format("{} is no setting; if it belongs to {}, put the value in quotes: {}='{} {}'",
                        inQuotes(word), cut.path, cut.path, cut.value, word)};
    }
    const Assignment assignment = splitAssignment(word);
    const std::vector<const StepInfo*> own = {step.info};
    const std::string path = resolvePath(assignment.path, own);
    const SettingInfo* setting = findSetting(*step.info, path);
    if (setting == nullptr && path.find('.') == std::string::npos) {
        std::vector<std::string> known;
        for (const SettingInfo& other : step.info->settings) known.push_back(lastPart(other.path));
        throw UsageError{
            fmt::format("{} has no setting {}{}", step.info->kind, inQuotes(path), didYouMean(path, known))};
    }
    const auto value =
        valueFromText(assignment.value, setting, fmt::format("{}, {}", step.info->kind, assignment.path));
    if (value) setPath(step.settings, path, *value);
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

// "line 3, column 14: number overflow parsing '1e999'": without the library's tags.
std::string jsonProblem(const std::string& text, const Json::exception& error)
{
    std::string what = error.what();
    if (const auto tag = what.find("] "); what.starts_with('[') && tag != what.npos) what.erase(0, tag + 2);
    constexpr std::string_view kParseError = "parse error at ";
    if (what.starts_with(kParseError)) return what.substr(kParseError.size());
    // A number that is too large comes without its place.
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

// A description that is nothing but the name of a file is a slip.
void refuseFileName(const std::string& text)
{
    std::error_code error;
    if (findStep(text) == nullptr && std::filesystem::is_regular_file(pathFromUtf8(text), error))
        throw UsageError{
            fmt::format("{} is a file, but the name of a pipeline file ends in .json", inQuotes(text))};
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

Pipeline pipelineFromFile(const std::optional<std::string>& text, const std::string& name)
{
    if (!text) throw UsageError{cannot("read", name)};
    return pipelineFrom(parseJson(*text, name + ": "));
}

}  // namespace

Pipeline pipelineFromJson(const std::string& text)
{
    return pipelineFrom(parseJson(text, ""));
}

Pipeline pipelineFromLine(const std::string& line)
{
    Pipeline pipeline;
    bool wantsKind = true;
    std::string before;  // setting of the same step
    for (const std::string& word : splitWords(line)) {
        if (word == "!") {
            if (wantsKind) throw UsageError{"a step is missing beside \"!\""};
            wantsKind = true;
            before.clear();
        } else if (wantsKind) {
            pipeline.steps.push_back({&stepNamed(word), "", {}});
            wantsKind = false;
        } else {
            addSetting(pipeline.steps.back(), word, std::exchange(before, word));
        }
    }
    if (wantsKind)
        throw UsageError{pipeline.steps.empty() ? "the pipeline has no steps"
                                                : "a step is missing after \"!\""};
    return pipeline;
}

void applySet(Pipeline& pipeline, const std::string& text)
{
    const Assignment assignment = splitAssignment(text);
    const auto among = infosOf(pipeline);
    const std::string path = resolvePath(assignment.path, among);
    const auto value =
        valueFromText(assignment.value, findSettingAmong(among, path), "--set " + assignment.path);
    if (value) setPath(pipeline.sets, path, *value);
}

Pipeline readPipeline(const std::string& text, const std::vector<std::string>& sets)
{
    Pipeline pipeline;
    if (text == "-") {
        pipeline = pipelineFromFile(descriptor::readAll(descriptor::kInput), "standard input");
    } else if (text.ends_with(".json")) {
        pipeline = pipelineFromFile(descriptor::readFile(text), text);
    } else {
        refuseFileName(text);
        pipeline = pipelineFromLine(text);
    }
    for (const std::string& set : sets) applySet(pipeline, set);
    checkSettings(pipeline);
    return pipeline;
}

void mergeSettings(varitype& record, const Struct& settings)
{
    for (const auto& [key, value] : settings) {
        const bool bothStructs = value.kind() == Kind::Struct && record.has(key) &&
                                 record[key].kind() == Kind::Struct && record[key].hasPayload() &&
                                 value.hasPayload();
        if (bothStructs) {
            varitype nested = record[key];
            mergeSettings(nested, value.as<Struct>());
        } else {
            record.set(key, value.clone());
        }
    }
}

std::string stepLabel(const Pipeline& pipeline, std::size_t index)
{
    const PipelineStep& step = pipeline.steps[index];
    return fmt::format("step {} ({}{})", index + 1, step.info->kind,
                       step.name.empty() ? "" : fmt::format(" \"{}\"", step.name));
}

}  // namespace scansteps::host
