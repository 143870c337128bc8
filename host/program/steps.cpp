// scansteps steps: the table of steps as text, JSON, reference page and JSON schema.
#include <fmt/format.h>

#include <cmath>

#include "commands.h"
#include "library/json_values.h"
#include "library/plugins.h"
#include "library/setting_lookup.h"
#include "library/usage_hints.h"
#include "output.h"
#include "scansteps/host.h"
#include "scansteps/plugin.h"

namespace scansteps::host {

namespace {

using Ordered = nlohmann::ordered_json;

Ordered numberOf(const SettingInfo& setting, double value)
{
    if (setting.kind == Kind::Int) return static_cast<std::int64_t>(value);
    return value;
}

Ordered jsonOf(const StepInfo& info)
{
    Ordered json = Ordered::parse(stepsJson({&info, 1}))[0];
    if (const Plugin* plugin = pluginOf(info.kind)) json["plugin"] = plugin->info.name;
    return json;
}

Ordered defaultOf(const SettingInfo& setting)
{
    return setting.kind == Kind::String ? Ordered(setting.text) : numberOf(setting, setting.number);
}

std::string defaultText(const SettingInfo& setting)
{
    if (setting.presence) return "presence";
    if (setting.required) return "required";
    if (setting.kind == Kind::String) return fmt::format("\"{}\"", setting.text);
    return defaultOf(setting).dump();
}

std::string rangeText(const SettingInfo& setting)
{
    const bool low = std::isfinite(setting.min), high = std::isfinite(setting.max);
    std::string text;
    if (low && high)
        text = fmt::format("{} to {}", setting.min, setting.max);
    else if (low)
        text = fmt::format("from {}", setting.min);
    else if (high)
        text = fmt::format("to {}", setting.max);
    if (*setting.unitName != 0) text += (text.empty() ? "" : " ") + std::string(setting.unitName);
    return text;
}

std::string framesText(const StepInfo& info)
{
    return fmt::format("Frames: {} in, {} out{}.", pixelsName(info.frames.in), pixelsName(info.frames.out),
                       info.frames.isStateless ? ", each by itself" : "");
}

void printStep(const StepInfo& info)
{
    answer("{} ({}){}", info.kind, info.className, info.source ? ", a source" : "");
    answer("  {}", info.summary);
    answer("  in {}, out {}", info.typeIn, info.typeOut);
    answer("  {}", framesText(info));
    if (const Plugin* plugin = pluginOf(info.kind))
        answer("  of the plug-in {} {} ({})", plugin->info.name, plugin->info.version, plugin->info.file);
    for (const SettingInfo& setting : info.settings) {
        const std::string range = rangeText(setting);
        answer("  {:<24} {:<7} {:<14} {}{}", setting.path, kindTypeName(setting.kind), defaultText(setting),
               setting.doc, range.empty() ? "" : " (" + range + ")");
    }
}

std::string markdownOf(const StepInfo& info, const char* heading)
{
    std::string text = fmt::format("\n{} {}\n\n{}.{}\n\nClass `{}`, in `{}`, out `{}`. {}\n", heading,
                                   info.kind, info.summary, info.source ? " A source." : "", info.className,
                                   info.typeIn, info.typeOut, framesText(info));
    if (info.settings.empty()) return text;
    text += "\n| setting | kind | default | range | meaning |\n|---|---|---|---|---|\n";
    for (const SettingInfo& setting : info.settings)
        text += fmt::format("| `{}` | {} | {} | {} | {} |\n", setting.path, kindTypeName(setting.kind),
                            setting.hasDefault() ? "`" + defaultText(setting) + "`" : defaultText(setting),
                            rangeText(setting), setting.doc);
    return text;
}

// Plug-ins have a part of their own each, so that the page of a build that lacks one lacks that part alone.
std::string markdown()
{
    std::string page =
        "# Steps\n\n<!-- Made by `scripts/generate.sh` from the table of steps; do not edit. -->\n\n"
        "Every kind of step, its class, its types and its settings: first the kinds of the step library, "
        "then "
        "those of the\nplug-ins that come with it. `scansteps steps KIND` prints the same, also of kinds of "
        "further plug-ins.\n";
    for (const auto& [plugin, kinds] : stepsByPlugin()) {
        if (!plugin.empty()) page += fmt::format("\n## Plug-in {}\n", plugin);
        for (const StepInfo* info : kinds) page += markdownOf(*info, plugin.empty() ? "##" : "###");
    }
    return page;
}

Ordered schemaOf(const SettingInfo& setting)
{
    if (setting.presence) return {{"description", setting.doc}};
    Ordered plain = {{"type", setting.kind == Kind::String ? "string"
                              : setting.kind == Kind::Int  ? "integer"
                                                           : "number"}};
    if (setting.enforced) {
        if (std::isfinite(setting.min)) plain["minimum"] = numberOf(setting, setting.min);
        if (std::isfinite(setting.max)) plain["maximum"] = numberOf(setting, setting.max);
    }
    Ordered json = {{"description", setting.doc}};
    if (setting.hasDefault()) json["default"] = defaultOf(setting);
    json["anyOf"] = {plain, {{"$ref", "#/definitions/other"}}};
    return json;
}

Ordered settingsSchema(std::span<const SettingInfo> settings, Ordered object)
{
    for (const SettingInfo& setting : settings) {
        const std::string path = setting.path;
        const std::size_t dot = path.find('.');
        if (dot == std::string::npos) {
            object["properties"][path] = schemaOf(setting);
            continue;
        }
        Ordered& family = object["properties"][path.substr(0, dot)];
        family["type"] = "object";
        family["properties"][path.substr(dot + 1)] = schemaOf(setting);
    }
    return object;
}

// For completion and checks of pipeline files in editors.
Ordered schema()
{
    Ordered names = Ordered::array(), rules = Ordered::array(), all = {{"type", "object"}};
    for (const StepInfo& info : stepTable()) {
        names.push_back(info.kind);
        all = settingsSchema(info.settings, all);
        if (info.settings.empty()) continue;
        rules.push_back(
            {{"if", {{"properties", {{"kind", {{"const", info.kind}}}}}, {"required", {"kind"}}}},
             {"then",
              {{"properties", {{"settings", settingsSchema(info.settings, {{"type", "object"}})}}}}}});
    }
    const Ordered step = {
        {"type", "object"},
        {"required", {"kind"}},
        {"additionalProperties", false},
        {"properties",
         {{"kind", {{"enum", names}}}, {"name", {{"type", "string"}}}, {"settings", {{"type", "object"}}}}},
        {"allOf", rules}};
    return {
        {"$schema", "http://json-schema.org/draft-07/schema#"},
        {"title", "scansteps pipeline"},
        {"type", "object"},
        {"required", {"steps"}},
        {"additionalProperties", false},
        {"properties",
         {{"$schema", {{"type", "string"}}},
          {"settings", all},
          {"frames", {{"type", "integer"}, {"minimum", 0}}},
          {"steps",
           {{"type", "array"}, {"minItems", 1}, {"items", {{"anyOf", {Ordered{{"enum", names}}, step}}}}}}}}};
}

}  // namespace

int steps(const StepsOptions& options)
{
    const auto library = loadLibrary(options);
    if (options.markdown)
        answerLines(markdown());
    else if (options.schema)
        answerLines(schema().dump(1) + "\n");
    else if (!options.kind.empty()) {
        const StepInfo* info = findStep(options.kind);
        if (info == nullptr) {
            std::vector<std::string> names;
            for (const StepInfo& known : stepTable()) names.emplace_back(known.kind);
            throw UsageError{fmt::format("there is no kind {}{}", inQuotes(options.kind),
                                         didYouMean(options.kind, names))};
        }
        if (options.json)
            answerLines(jsonOf(*info).dump(2) + "\n");
        else
            printStep(*info);
    } else if (options.json) {
        Ordered list = Ordered::array();
        for (const StepInfo& info : stepTable()) list.push_back(jsonOf(info));
        answerLines(list.dump(2) + "\n");
    } else {
        for (const StepInfo& info : stepTable())
            answer("{:<12} {:<15} {}", info.kind, info.className, info.summary);
    }
    return kEnded;
}

}  // namespace scansteps::host
