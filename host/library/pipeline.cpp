// Pipelines from one-line descriptions and files, and what --set puts into them.
#include <fmt/format.h>

#include <filesystem>
#include <utility>

#include "descriptors.h"
#include "pipeline_parts.h"
#include "platform.h"
#include "setting_lookup.h"
#include "usage_hints.h"

namespace scansteps::host {

namespace {

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

// The full path of a setting: as given, or with the family that has a setting of that name.
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

// valueFromText(), or the text itself where it is to be kept.
std::optional<varitype> valueOrText(const std::string& text, const SettingInfo* setting,
                                    const std::string& where, const KeepText& keep)
{
    return keep && keep(text) ? varitype(text) : valueFromText(text, setting, where);
}

// `before` is the word before this one, where it was a setting of the same step.
void addSetting(PipelineStep& step, const std::string& word, const std::string& before, const KeepText& keep)
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
        valueOrText(assignment.value, setting, fmt::format("{}, {}", step.info->kind, assignment.path), keep);
    if (value) setPath(step.settings, path, *value);
}

// A description that is only a file name is a mistake.
void refuseFileName(const std::string& text)
{
    std::error_code error;
    if (findStep(text) == nullptr && std::filesystem::is_regular_file(pathFromUtf8(text), error))
        throw UsageError{
            fmt::format("{} is a file, but the name of a pipeline file ends in .json", inQuotes(text))};
}

// Whether the text names a file: a description may end in .json as well, with the value of a setting.
bool namesPipelineFile(const std::string& text)
{
    std::error_code error;
    return text.ends_with(".json") &&
           (text.find('=') == std::string::npos || std::filesystem::exists(pathFromUtf8(text), error));
}

Pipeline pipelineFromFile(const std::optional<std::string>& text, const std::string& name)
{
    if (!text) throw UsageError{cannot("read", name)};
    return pipelineFromJson(*text, name + ": ");
}

}  // namespace

const StepInfo& stepNamed(const std::string& name)
{
    if (const StepInfo* info = findStep(name)) return *info;
    std::vector<std::string> names;
    for (const StepInfo& info : stepTable()) names.emplace_back(info.kind);
    throw UsageError{fmt::format("there is no kind {}{}", inQuotes(name),
                                 didYouMean(name, names, " (scansteps steps lists them)"))};
}

static Pipeline pipelineFromLine(const std::string& line, const KeepText& keep)
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
            addSetting(pipeline.steps.back(), word, std::exchange(before, word), keep);
        }
    }
    if (wantsKind)
        throw UsageError{pipeline.steps.empty() ? "the pipeline has no steps"
                                                : "a step is missing after \"!\""};
    return pipeline;
}

Pipeline pipelineFromLine(const std::string& line)
{
    return pipelineFromLine(line, {});
}

void applySet(Pipeline& pipeline, std::size_t step, const std::string& assignment)
{
    addSetting(pipeline.steps.at(step), assignment, "", {});
}

static void applySet(Pipeline& pipeline, const std::string& text, const KeepText& keep)
{
    const Assignment assignment = splitAssignment(text);
    const auto among = infosOf(pipeline);
    const std::string path = resolvePath(assignment.path, among);
    const auto value =
        valueOrText(assignment.value, findSettingAmong(among, path), "--set " + assignment.path, keep);
    if (value) setPath(pipeline.sets, path, *value);
}

void applySet(Pipeline& pipeline, const std::string& text)
{
    applySet(pipeline, text, {});
}

Pipeline readTemplate(const std::string& text, const std::vector<std::string>& sets, const KeepText& keep)
{
    Pipeline pipeline;
    if (text == "-") {
        pipeline = pipelineFromFile(descriptor::readAll(descriptor::kInput), "standard input");
    } else if (namesPipelineFile(text)) {
        pipeline = pipelineFromFile(descriptor::readFile(text), text);
    } else {
        refuseFileName(text);
        pipeline = pipelineFromLine(text, keep);
    }
    for (const std::string& set : sets) applySet(pipeline, set, keep);
    return pipeline;
}

Pipeline readPipeline(const std::string& text, const std::vector<std::string>& sets)
{
    Pipeline pipeline = readTemplate(text, sets, {});
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
