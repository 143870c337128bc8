// Writes pipelines in both of the forms in which they are read.
#include <fmt/format.h>

#include "json_values.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

Struct topSettings(const Pipeline& pipeline)
{
    varitype all{Struct(pipeline.settings)};
    mergeSettings(all, pipeline.sets);
    return all.as<Struct>();
}

// In single quotes unless every character is harmless in a shell.
std::string shellWord(const std::string& text)
{
    const char* const harmless = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=.,:/@%";
    if (!text.empty() && text.find_first_not_of(harmless) == text.npos) return text;
    std::string result = "'";
    for (const char c : text)
        if (c == '\'')
            result += R"('\'')";
        else
            result += c;
    return result + "'";
}

// A value as the reader of assignments takes it.
std::string valueText(const varitype& value)
{
    return value.kind() == Kind::String ? value.as<std::string>() : dumpLine(jsonFromValue(value));
}

template <class Visit>
void forEachSetting(const Struct& settings, const std::string& prefix, const Visit& visit)
{
    for (const Struct::Entry& entry : settings) {
        const auto& [key, value] = entry;
        if (value.kind() == Kind::Struct && value.hasPayload())
            forEachSetting(value.as<Struct>(), prefix + key + ".", visit);
        else
            visit(prefix + key, valueText(value));
    }
}

// A word of a description, which has its own quotes. A text that holds both sorts of them cannot be written
// there.
std::string word(const std::string& text)
{
    if (text.find_first_of(" \t\n\r!\"'") == text.npos) return text;
    const char quote = text.find('"') == text.npos ? '"' : '\'';
    if (text.find(quote) != text.npos)
        throw UsageError{
            "a value with both sorts of quotes has no place on a command line; save the pipeline instead"};
    return quote + text + quote;
}

}  // namespace

std::string pipelineJson(const Pipeline& pipeline)
{
    nlohmann::ordered_json json;
    json["$schema"] = "pipeline.schema.json";
    if (const Struct top = topSettings(pipeline); !top.empty()) json["settings"] = jsonFromRecord(top);
    if (pipeline.frames != 0) json["frames"] = pipeline.frames;
    json["steps"] = nlohmann::ordered_json::array();
    for (const PipelineStep& step : pipeline.steps) {
        nlohmann::ordered_json one = {{"kind", step.info->kind}};
        if (!step.name.empty()) one["name"] = step.name;
        if (!step.settings.empty()) one["settings"] = jsonFromRecord(step.settings, {.arrayData = true});
        json["steps"].push_back(one.size() == 1 ? one["kind"] : one);
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string pipelineArguments(const Pipeline& pipeline)
{
    std::string line, options;
    for (const PipelineStep& step : pipeline.steps) {
        line += (line.empty() ? "" : " ! ") + std::string(step.info->kind);
        forEachSetting(step.settings, "", [&](const std::string& path, const std::string& value) {
            line += " " + path + "=" + word(value);
        });
    }
    forEachSetting(topSettings(pipeline), "", [&](const std::string& path, const std::string& value) {
        options += " --set " + shellWord(path + "=" + value);
    });
    if (pipeline.frames != 0) options += fmt::format(" --frames {}", pipeline.frames);
    return shellWord(line) + options;
}

}  // namespace scansteps::host
