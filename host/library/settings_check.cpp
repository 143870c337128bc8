// Checks the settings and types of a pipeline before a run: values that do not fit, misspelt keys, missing
// settings, types of neighbours.
#include <fmt/format.h>

#include <algorithm>

#include "checks.h"
#include "scansteps/settings.h"
#include "setting_lookup.h"
#include "usage_hints.h"
#include "values.h"

namespace scansteps::host {

namespace {

// The steps that a settings record may be meant for, the nearest first: its own step, those of the pipeline,
// all.
struct Scope
{
    std::vector<const StepInfo*> near;
    std::vector<const StepInfo*> all;

    const SettingInfo* find(const std::string& path) const
    {
        const SettingInfo* setting = findSettingAmong(near, path);
        return setting != nullptr ? setting : findSettingAmong(all, path);
    }
    // The setting of a near step whose name without its family is spelt most alike; empty when none is.
    std::string nearInFamilies(const std::string& key) const
    {
        std::vector<std::string> paths, names;
        for (const StepInfo* info : near)
            for (const SettingInfo& setting : info->settings) {
                paths.emplace_back(setting.path);
                names.push_back(lastPart(setting.path));
            }
        const auto found = std::find(names.begin(), names.end(), nearest(key, names));
        return found == names.end() ? "" : paths[std::size_t(found - names.begin())];
    }
    // Names that may stand after `prefix` ("" or "OCV.").
    std::vector<std::string> namesUnder(const std::string& prefix) const
    {
        std::vector<std::string> names;
        for (const auto* kinds : {&near, &all})
            for (const StepInfo* info : *kinds)
                for (const SettingInfo& setting : info->settings) {
                    const std::string_view path = setting.path;
                    if (!path.starts_with(prefix)) continue;
                    const std::string_view rest = path.substr(prefix.size());
                    names.emplace_back(rest.substr(0, rest.find('.')));
                }
        return names;
    }
};

// Converts the value to the declared kind. A value of a forced kind is kept: the step gets what was asked
// for.
varitype convertTo(const SettingInfo& setting, const varitype& value, const std::string& where,
                   std::vector<std::string>& warnings)
{
    if (setting.presence) return value;
    varitype result = value;
    if (value.kind() != setting.kind) {
        const auto fitting = converted(value, setting.kind, where);
        if (!fitting) {
            warnings.push_back(fmt::format("{} is of kind {}, not {}", where, kindTypeName(setting.kind),
                                           kindTypeName(value.kind())));
            return value;
        }
        result = *fitting;
    }
    double number = 0;
    if (result.kind() == Kind::Int)
        number = result.as<std::int32_t>();
    else if (result.kind() == Kind::Float)
        number = double(result.as<float>());
    else
        return result;
    if (setting.enforced && !(number >= setting.min && number <= setting.max))
        throw UsageError{fmt::format("{} = {} is outside {} to {}", where, number, setting.min, setting.max)};
    return result;
}

void checkRecord(Struct& record, const std::string& prefix, const Scope& scope, const std::string& owner,
                 std::vector<std::string>& warnings)
{
    const auto known = scope.namesUnder(prefix);
    std::vector<std::string> keys;
    for (const auto& entry : record) keys.push_back(entry.name);
    for (const std::string& key : keys) {
        const std::string path = prefix + key;
        if (const SettingInfo* setting = scope.find(path)) {
            const varitype value = convertTo(*setting, record[key], owner + path, warnings);
            const double number = value.kind() == Kind::Int ? value.as<std::int32_t>() : setting->min;
            if (number < setting->min || number > setting->max)
                warnings.push_back(fmt::format("{}{} = {} is outside {} to {}", owner, path, number,
                                               setting->min, setting->max));
            record.set(key, value);
            continue;
        }
        varitype value = record[key];
        const bool isFamily = std::find(known.begin(), known.end(), key) != known.end();
        if (isFamily && value.kind() == Kind::Struct) {
            if (value.hasPayload()) checkRecord(value.getv<Struct>(), path + ".", scope, owner, warnings);
            continue;
        }
        if (isFamily) throw UsageError{fmt::format("{}{} is a group of settings, not a value", owner, path)};
        // Hosts may send top-level keys of their own; in a known family an unknown key is a mistake.
        std::string near = nearest(key, known);
        if (!near.empty()) near.insert(0, prefix);
        if (prefix.empty() && near.empty()) near = scope.nearInFamilies(key);
        if (!prefix.empty() || !near.empty())
            warnings.push_back(fmt::format("{}{} is not a known setting{}", owner, inQuotes(path),
                                           near.empty() ? "" : fmt::format("; did you mean {}?", near)));
    }
}

bool partFits(std::string_view a, std::string_view b)
{
    return a == b || a == "ANY" || b == "ANY";
}

bool typeFits(std::string_view out, std::string_view in)
{
    const auto split = [](std::string_view type) {
        const std::size_t at = type.find("::");
        return std::pair{type.substr(0, at),
                         at == std::string_view::npos ? std::string_view("ANY") : type.substr(at + 2)};
    };
    const auto [outPlace, outFormat] = split(out);
    const auto [inPlace, inFormat] = split(in);
    return partFits(outPlace, inPlace) && partFits(outFormat, inFormat);
}

// Only the host sets "eventType": with another value steps would not see an initialise event.
void dropEventType(Pipeline& pipeline)
{
    bool dropped = pipeline.settings.remove("eventType");
    dropped = pipeline.sets.remove("eventType") || dropped;
    for (PipelineStep& step : pipeline.steps) dropped = step.settings.remove("eventType") || dropped;
    if (dropped) pipeline.warnings.emplace_back("eventType is no setting, the host sets it: left out");
}

}  // namespace

std::vector<const StepInfo*> infosOf(const Pipeline& pipeline)
{
    std::vector<const StepInfo*> result;
    for (const PipelineStep& step : pipeline.steps) result.push_back(step.info);
    return result;
}

const SettingInfo* findSettingAmong(const std::vector<const StepInfo*>& kinds, std::string_view path)
{
    for (const StepInfo* info : kinds)
        if (const SettingInfo* setting = findSetting(*info, path)) return setting;
    return nullptr;
}

std::string lastPart(std::string_view path)
{
    return std::string(path.substr(path.rfind('.') + 1));
}

void checkSettings(Pipeline& pipeline)
{
    pipeline.warnings.clear();
    dropEventType(pipeline);
    std::vector<const StepInfo*> all;
    for (const StepInfo& info : stepTable()) all.push_back(&info);
    const auto ofPipeline = infosOf(pipeline);
    checkRecord(pipeline.settings, "", {ofPipeline, all}, "", pipeline.warnings);
    checkRecord(pipeline.sets, "", {ofPipeline, all}, "--set ", pipeline.warnings);
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i) {
        std::vector<const StepInfo*> near = {pipeline.steps[i].info};
        near.insert(near.end(), ofPipeline.begin(), ofPipeline.end());
        checkRecord(pipeline.steps[i].settings, "", {near, all}, stepLabel(pipeline, i) + ": ",
                    pipeline.warnings);
    }
}

std::optional<varitype> effectiveValue(const Pipeline& pipeline, std::size_t index, const char* path)
{
    varitype record{Struct(pipeline.settings)};
    mergeSettings(record, pipeline.sets);
    for (std::size_t i = 0; i <= index; ++i) mergeSettings(record, pipeline.steps[i].settings);
    return findPath(record, path);
}

void checkRequired(const Pipeline& pipeline, std::vector<Finding>& findings)
{
    bool described = false;  // by a source
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i) {
        const StepInfo& info = *pipeline.steps[i].info;
        for (const SettingInfo& setting : info.settings) {
            const std::string_view path = setting.path;
            if (!setting.required || (described && path.starts_with("data"))) continue;
            if (!effectiveValue(pipeline, i, setting.path))
                findings.push_back(
                    {kUsage,
                     fmt::format("{} needs {} ({})", stepLabel(pipeline, i), setting.path, setting.doc), i});
        }
        // What a recording contains is known only when it is played.
        if (info.player) break;
        described = described || info.source;
    }
}

void checkTypes(const Pipeline& pipeline, const CheckMode& mode, std::vector<Finding>& findings)
{
    if (mode.types == TypeCheck::Off) return;
    for (std::size_t i = 1; i < pipeline.steps.size(); ++i) {
        const StepInfo &from = *pipeline.steps[i - 1].info, &to = *pipeline.steps[i].info;
        if (!typeFits(from.typeOut, to.typeIn))
            findings.push_back(
                {mode.types == TypeCheck::Warn ? kEnded : kMisfit,
                 fmt::format("types do not fit: {} gives {}, but {} takes {}", stepLabel(pipeline, i - 1),
                             from.typeOut, stepLabel(pipeline, i), to.typeIn),
                 i});
    }
}

}  // namespace scansteps::host
