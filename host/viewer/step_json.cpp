// Takes everything from the table of steps.
#include "step_json.h"

#include <cmath>

#include "library/json_values.h"
#include "tuner.h"

namespace scansteps::viewer {

namespace {

using host::Json;

Json numberOf(const SettingInfo& setting, double value)
{
    return setting.kind == Kind::Int ? Json(static_cast<std::int64_t>(value)) : Json(value);
}

const char* whyFixed(const StepInfo& step, const SettingInfo& setting)
{
    if (isTunable(step, setting)) return nullptr;
    if (step.source) return "the source is not run again for trials";
    if (!isTried(step)) return "steps that write files or open connections take no part in trials";
    if (setting.role != SettingRole::None) return "it names a file or a host";
    if (setting.kind == Kind::String) return "texts are set on the command line only";
    return "it describes the frames";
}

}  // namespace

Json settingValue(const host::Pipeline& pipeline, std::size_t step, const SettingInfo& setting)
{
    if (const auto value = host::effectiveValue(pipeline, step, setting.path)) {
        const Json json = host::jsonFromValue(*value);
        return json.is_object() && json.size() == 1 && host::isForcedKind(json) ? json.begin().value() : json;
    }
    if (!setting.hasDefault()) return nullptr;
    if (setting.kind == Kind::String) return setting.text != nullptr ? setting.text : "";
    return numberOf(setting, setting.number);
}

Json stepJson(const host::Pipeline& pipeline, std::size_t index)
{
    const host::PipelineStep& step = pipeline.steps[index];
    const StepInfo& info = *step.info;
    Json json = {
        {"kind", info.kind},       {"name", step.name},       {"class", info.className},
        {"summary", info.summary}, {"source", info.source},   {"tried", isTried(info)},
        {"typeIn", info.typeIn},   {"typeOut", info.typeOut}, {"label", host::stepLabel(pipeline, index)}};
    Json settings = Json::array();
    for (const SettingInfo& setting : info.settings) {
        Json one = {{"path", setting.path},
                    {"kind", kindTypeName(setting.kind)},
                    {"doc", setting.doc},
                    {"unit", setting.unitName},
                    {"value", settingValue(pipeline, index, setting)}};
        if (setting.hasDefault() && setting.kind != Kind::String)
            one["default"] = numberOf(setting, setting.number);
        if (std::isfinite(setting.min)) one["min"] = numberOf(setting, setting.min);
        if (std::isfinite(setting.max)) one["max"] = numberOf(setting, setting.max);
        if (const char* why = whyFixed(info, setting)) one["fixed"] = why;
        settings.push_back(std::move(one));
    }
    json["settings"] = std::move(settings);
    return json;
}

}  // namespace scansteps::viewer
