// Fills pipelines, finds the files they name and writes them as JSON.
#include "batch_pipeline.h"

#include <fmt/format.h>

#include <algorithm>

#include "library/json_values.h"
#include "library/pipeline_parts.h"
#include "library/setting_lookup.h"
#include "scansteps/settings.h"

namespace scansteps::host {

namespace {

// Fills the texts of one record of settings. `owner` is its step, or null.
class Filler
{
  public:
    Filler(const Pipeline& pipeline, const Placeholders& values)
        : values_(values), ofPipeline_(infosOf(pipeline))
    {
    }
    Struct filled(const Struct& settings, const StepInfo* owner, const std::string& prefix = "") const
    {
        Struct result;
        for (const auto& [name, value] : settings) {
            const std::string path = prefix + name;
            if (value.kind() == Kind::Struct && value.hasPayload())
                result.set(name, filled(value.as<Struct>(), owner, path + "."));
            else if (value.kind() != Kind::String)
                result.set(name, value.clone());
            else if (auto text = filledText(value.as<std::string>(), owner, path))
                result.set(name, std::move(*text));
        }
        return result;
    }

  private:
    std::optional<varitype> filledText(const std::string& text, const StepInfo* owner,
                                       const std::string& path) const
    {
        std::string result = values_.fill(text, path);
        const SettingInfo* setting = owner != nullptr ? findSetting(*owner, path) : nullptr;
        if (setting == nullptr) setting = findSettingAmong(ofPipeline_, path);
        if (setting == nullptr || setting->kind == Kind::String || setting->presence ||
            !holdsPlaceholder(text))
            return varitype(std::move(result));
        return valueFromText(result, setting, path);
    }

    const Placeholders& values_;
    std::vector<const StepInfo*> ofPipeline_;
};

const SettingInfo* countedInput(const StepInfo& info)
{
    const auto found = std::find_if(info.settings.begin(), info.settings.end(), [](const auto& setting) {
        return setting.counted && setting.role == SettingRole::Input;
    });
    return info.source && found != info.settings.end() ? &*found : nullptr;
}

// Leaves of nested records as PATH=VALUE.
void addSets(const Pipeline& pipeline, const Struct& sets, const std::string& prefix,
             std::vector<std::string>& arguments)
{
    const auto among = infosOf(pipeline);
    for (const auto& [name, value] : sets) {
        const std::string path = prefix + name;
        if (value.kind() == Kind::Struct && value.hasPayload()) {
            addSets(pipeline, value.as<Struct>(), path + ".", arguments);
            continue;
        }
        // Text is taken as it is where a text is declared, and as JSON elsewhere.
        const SettingInfo* setting = findSettingAmong(among, path);
        const bool asItIs =
            value.kind() == Kind::String && setting != nullptr && setting->kind == Kind::String;
        arguments.insert(
            arguments.end(),
            {"--set", path + "=" + (asItIs ? value.as<std::string>() : jsonFromValue(value, {true}).dump())});
    }
}

}  // namespace

void fillPlaceholders(Pipeline& pipeline, const Placeholders& values)
{
    const Filler filler(pipeline, values);
    pipeline.settings = filler.filled(pipeline.settings, nullptr);
    pipeline.sets = filler.filled(pipeline.sets, nullptr);
    for (PipelineStep& step : pipeline.steps) step.settings = filler.filled(step.settings, step.info);
}

void setStepSetting(Pipeline& pipeline, std::size_t step, const std::string& path, const varitype& value)
{
    const std::size_t dot = path.find('.');
    Struct nested;
    if (dot == path.npos)
        nested.set(path, value);
    else
        nested.set(path.substr(0, dot), Struct{{path.substr(dot + 1), value}});
    varitype record{Struct(pipeline.steps[step].settings)};
    mergeSettings(record, nested);
    pipeline.steps[step].settings = record.as<Struct>();
}

std::int64_t integerSetting(const Pipeline& pipeline, std::size_t step, const char* path)
{
    const SettingInfo* setting = findSetting(*pipeline.steps[step].info, path);
    const auto value = effectiveValue(pipeline, step, path);
    if (value && value->kind() == Kind::Int) return value->as<std::int32_t>();
    return setting != nullptr ? std::int64_t(setting->number) : 0;
}

std::string textSetting(const Pipeline& pipeline, std::size_t step, const SettingInfo& setting)
{
    const auto value = effectiveValue(pipeline, step, setting.path);
    if (value && value->kind() == Kind::String) return value->as<std::string>();
    return setting.text != nullptr && !value ? setting.text : "";
}

std::optional<std::int64_t> framesOf(const Pipeline& pipeline, SeriesLengths& lengths)
{
    const std::int64_t limit = pipeline.frames > 0 ? pipeline.frames : INT64_MAX;
    std::int64_t frames = limit;
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i) {
        const SettingInfo* name = countedInput(*pipeline.steps[i].info);
        if (name == nullptr) continue;
        const std::string family = std::string(name->path).substr(0, std::string_view(name->path).find('.'));
        const std::int64_t count = integerSetting(pipeline, i, (family + ".count").c_str());
        const int step = int(integerSetting(pipeline, i, (family + ".incr").c_str()));
        std::int64_t most = limit;
        if (count > 0) most = std::min(most, count + 1);
        if (effectiveValue(pipeline, i, (family + ".one").c_str())) most = 1;
        if (step != 0) most = lengths.length(textSetting(pipeline, i, *name), step, most);
        frames = std::min(frames, most);
    }
    return frames == INT64_MAX ? std::nullopt : std::optional(frames);
}

std::vector<Series> inputsOf(const Pipeline& pipeline, std::optional<std::int64_t> frames)
{
    std::vector<Series> inputs;
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i) {
        const StepInfo& info = *pipeline.steps[i].info;
        for (const SettingInfo& setting : info.settings) {
            if (setting.role != SettingRole::Input) continue;
            Series series{textSetting(pipeline, i, setting)};
            if (series.first.empty()) continue;
            if (&setting == countedInput(info)) {
                const std::string_view family = setting.path;
                series.step = int(integerSetting(
                    pipeline, i, (std::string(family.substr(0, family.find('.'))) + ".incr").c_str()));
                series.counted = series.step != 0;
                series.count = series.counted ? frames.value_or(1) : 1;
            }
            inputs.push_back(std::move(series));
        }
    }
    return inputs;
}

std::vector<Series> outputsOf(const Pipeline& pipeline, std::optional<std::int64_t> frames)
{
    std::vector<Series> outputs;
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i)
        for (const SettingInfo& setting : pipeline.steps[i].info->settings) {
            if (setting.role != SettingRole::Output) continue;
            std::string name = textSetting(pipeline, i, setting);
            if (name.empty()) continue;
            outputs.push_back(
                {std::move(name), setting.counted ? frames.value_or(0) : 1, 1, setting.counted});
        }
    return outputs;
}

std::string jsonOf(const Pipeline& pipeline)
try {
    Json steps = Json::array();
    for (const PipelineStep& step : pipeline.steps) {
        Json json = {{"kind", step.info->kind}};
        if (!step.name.empty()) json["name"] = step.name;
        if (!step.settings.empty()) json["settings"] = jsonFromRecord(step.settings, {true});
        steps.push_back(std::move(json));
    }
    Json json = {{"settings", jsonFromRecord(pipeline.settings, {true})}, {"steps", std::move(steps)}};
    if (pipeline.frames > 0) json["frames"] = pipeline.frames;
    return json.dump();
} catch (const Json::exception&) {
    throw UsageError{"a name is not valid UTF-8"};
}

std::vector<std::string> argumentsOf(const Pipeline& pipeline)
try {
    std::vector<std::string> arguments;
    addSets(pipeline, pipeline.sets, "", arguments);
    return arguments;
} catch (const Json::exception&) {
    throw UsageError{"a name is not valid UTF-8"};
}

}  // namespace scansteps::host
