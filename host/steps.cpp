// scansteps steps: the table of kinds as text, JSON, reference page and JSON schema.
#include <fmt/format.h>

#include <cmath>

#include "commands.h"
#include "exit_codes.h"
#include "json_values.h"
#include "output.h"
#include "pipeline.h"
#include "scansteps/steps.h"
#include "setting_lookup.h"
#include "usage_hints.h"

namespace scansteps::host {

namespace {

using Ordered = nlohmann::ordered_json;

Ordered numberOf(const SettingInfo& setting, double value)
{
    if (setting.kind == Kind::Int) return static_cast<std::int64_t>(value);
    return value;
}

Ordered jsonOf(const SettingInfo& setting)
{
    Ordered json = {{"path", setting.path}, {"kind", kindTypeName(setting.kind)}};
    if (setting.hasDefault())
        json["default"] =
            setting.kind == Kind::String ? Ordered(setting.text) : numberOf(setting, setting.number);
    json["required"] = setting.required;
    if (setting.presence) json["presence"] = true;
    if (std::isfinite(setting.min)) json["min"] = numberOf(setting, setting.min);
    if (std::isfinite(setting.max)) json["max"] = numberOf(setting, setting.max);
    if (*setting.unitName != 0) json["unit"] = setting.unitName;
    constexpr const char* kRoles[] = {"", "input", "output", "host", "port"};
    if (setting.role != SettingRole::None) json["role"] = kRoles[static_cast<std::size_t>(setting.role)];
    json["doc"] = setting.doc;
    return json;
}

Ordered jsonOf(const StepInfo& kind)
{
    Ordered json = {{"kind", kind.kind},
                    {"class", kind.className},
                    {"typeIn", kind.typeIn},
                    {"typeOut", kind.typeOut},
                    {"source", kind.source},
                    {"summary", kind.summary},
                    {"frames", {{"in", pixelsName(kind.frames.in)}, {"out", pixelsName(kind.frames.out)}}},
                    {"stateless", kind.frames.isStateless},
                    {"settings", Ordered::array()}};
    for (const SettingInfo& setting : kind.settings) json["settings"].push_back(jsonOf(setting));
    return json;
}

std::string defaultText(const SettingInfo& setting)
{
    if (setting.presence) return "presence";
    if (setting.required) return "required";
    if (setting.kind == Kind::String) return fmt::format("\"{}\"", setting.text);
    return jsonOf(setting)["default"].dump();
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

std::string framesText(const StepInfo& kind)
{
    return fmt::format("Frames: {} in, {} out{}.", pixelsName(kind.frames.in), pixelsName(kind.frames.out),
                       kind.frames.isStateless ? ", each by itself" : "");
}

void printKind(const StepInfo& kind)
{
    answer("{} ({}){}", kind.kind, kind.className, kind.source ? ", a source" : "");
    answer("  {}", kind.summary);
    answer("  in {}, out {}", kind.typeIn, kind.typeOut);
    answer("  {}", framesText(kind));
    for (const SettingInfo& setting : kind.settings) {
        const std::string range = rangeText(setting);
        answer("  {:<24} {:<7} {:<14} {}{}", setting.path, kindTypeName(setting.kind), defaultText(setting),
               setting.doc, range.empty() ? "" : " (" + range + ")");
    }
}

std::string markdown()
{
    std::string page =
        "# Steps\n\n<!-- Made by `scripts/generate.sh` from the table of kinds; do not edit. -->\n\n"
        "Every kind of step, its class, its types and its settings. `scansteps steps KIND` prints the "
        "same.\n";
    for (const StepInfo& kind : stepTable()) {
        page += fmt::format("\n## {}\n\n{}.{}\n\nClass `{}`, in `{}`, out `{}`. {}\n", kind.kind,
                            kind.summary, kind.source ? " A source." : "", kind.className, kind.typeIn,
                            kind.typeOut, framesText(kind));
        if (kind.settings.empty()) continue;
        page += "\n| setting | kind | default | range | meaning |\n|---|---|---|---|---|\n";
        for (const SettingInfo& setting : kind.settings)
            page +=
                fmt::format("| `{}` | {} | {} | {} | {} |\n", setting.path, kindTypeName(setting.kind),
                            setting.hasDefault() ? "`" + defaultText(setting) + "`" : defaultText(setting),
                            rangeText(setting), setting.doc);
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
        plain["minimum"] = numberOf(setting, setting.min);
        plain["maximum"] = numberOf(setting, setting.max);
    }
    Ordered json = {{"description", setting.doc}};
    if (setting.hasDefault()) json["default"] = jsonOf(setting)["default"];
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

// For editors: completion and checks of pipeline files.
Ordered schema()
{
    Ordered names = Ordered::array(), rules = Ordered::array(), all = {{"type", "object"}};
    for (const StepInfo& kind : stepTable()) {
        names.push_back(kind.kind);
        all = settingsSchema(kind.settings, all);
        if (kind.settings.empty()) continue;
        rules.push_back(
            {{"if", {{"properties", {{"kind", {{"const", kind.kind}}}}}, {"required", {"kind"}}}},
             {"then",
              {{"properties", {{"settings", settingsSchema(kind.settings, {{"type", "object"}})}}}}}});
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
    if (options.markdown)
        answerLines(markdown());
    else if (options.schema)
        answerLines(schema().dump(1) + "\n");
    else if (!options.kind.empty()) {
        const StepInfo* kind = findStep(options.kind);
        if (kind == nullptr) {
            std::vector<std::string> names;
            for (const StepInfo& info : stepTable()) names.emplace_back(info.kind);
            throw UsageError{fmt::format("there is no kind {}{}", inQuotes(options.kind),
                                         didYouMean(options.kind, names))};
        }
        if (options.json)
            answerLines(jsonOf(*kind).dump(2) + "\n");
        else
            printKind(*kind);
    } else if (options.json) {
        Ordered list = Ordered::array();
        for (const StepInfo& kind : stepTable()) list.push_back(jsonOf(kind));
        answerLines(list.dump(2) + "\n");
    } else {
        for (const StepInfo& kind : stepTable())
            answer("{:<12} {:<15} {}", kind.kind, kind.className, kind.summary);
    }
    return kEnded;
}

}  // namespace scansteps::host
