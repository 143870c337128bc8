// Fills the pipeline for every job, finds what each reads and writes, and refuses jobs that would write the
// same files.
#include "batch_jobs.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include "batch_pipeline.h"
#include "key_hash.h"
#include "library/usage_hints.h"
#include "scansteps/numbered_name.h"

namespace scansteps::host {

namespace {

// Jobs share the processors by being many, so each keeps to one thread; these settings say so, as soon as a
// step of the pipeline has them and unless the user sets them. (OMP_NUM_THREADS: batch_process.cpp.)
constexpr std::pair<const char*, int> kJobDefaults[] = {{"load.ahead", 0}, {"write.behind", 0}};

void setJobDefaults(Pipeline& pipeline)
{
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i)
        for (const auto& [path, value] : kJobDefaults)
            if (findSetting(*pipeline.steps[i].info, path) != nullptr && !effectiveValue(pipeline, i, path))
                setStepSetting(pipeline, i, path, value);
}

bool dependsOnJob(const Struct& settings)
{
    return std::any_of(settings.begin(), settings.end(), [](const auto& entry) {
        const varitype& value = entry.value;
        if (value.kind() == Kind::String) return holdsPlaceholder(value.as<std::string>());
        return value.kind() == Kind::Struct && value.hasPayload() && dependsOnJob(value.as<Struct>());
    });
}

bool dependsOnJob(const Pipeline& pipeline)
{
    return dependsOnJob(pipeline.settings) || dependsOnJob(pipeline.sets) ||
           std::any_of(pipeline.steps.begin(), pipeline.steps.end(),
                       [](const PipelineStep& step) { return dependsOnJob(step.settings); });
}

}  // namespace

JobList::JobList(const BatchOptions& options) : options_(options)
{
    template_ = readTemplate(options.pipeline, options.sets, holdsPlaceholder);
    if (options.frames >= 0) template_.frames = options.frames;
    readInputs();
    if (!inputs_.rows.empty()) assignInput();
    if (!options.out.empty()) assignOutput();
    if (options.split > 0) refuseStateful();
    if (!inputs_.rows.empty() && !dependsOnJob(template_))
        throw UsageError{
            "every job would be the same: the pipeline has neither a source of files nor a "
            "placeholder such as {}"};
    for (std::size_t row = 0; row < std::max<std::size_t>(inputs_.rows.size(), 1); ++row) addJobs(row);
    SeriesLengths lengths;
    for (std::size_t n = 0; n < jobs_.size(); ++n) finish(n, lengths);
    refuseClashes();
}

void JobList::readInputs()
{
    if (!options_.each.empty() && !options_.list.empty())
        throw UsageError{"--each and --list exclude each other"};
    if (!options_.each.empty())
        inputs_ = inputsFromGlob(options_.each);
    else if (!options_.list.empty())
        inputs_ = inputsFromList(options_.list);
    else if (options_.split == 0)
        throw UsageError{"batch needs --each, --list or --split"};
}

// The input is the source's file unless the pipeline says with a placeholder what it is for.
void JobList::assignInput()
{
    for (std::size_t i = 0; i < template_.steps.size(); ++i) {
        const StepInfo& info = *template_.steps[i].info;
        for (const SettingInfo& setting : info.settings) {
            if (!info.source || setting.role != SettingRole::Input) continue;
            const auto given = effectiveValue(template_, i, setting.path);
            const bool isText = given && given->kind() == Kind::String;
            if (isText && holdsPlaceholder(given->as<std::string>())) return;
            if (!given || inputs_.isPath) setStepSetting(template_, i, setting.path, "{}");
            return;
        }
    }
}

void JobList::assignOutput()
{
    std::vector<std::pair<std::size_t, const char*>> writers;
    std::string names;
    for (std::size_t i = 0; i < template_.steps.size(); ++i)
        for (const SettingInfo& setting : template_.steps[i].info->settings)
            if (setting.role == SettingRole::Output) {
                writers.emplace_back(i, setting.path);
                names += (names.empty() ? "" : ", ") + stepLabel(template_, i);
            }
    if (writers.empty()) throw UsageError{"--out names the output of a writer, but the pipeline has none"};
    if (writers.size() > 1)
        throw UsageError{fmt::format(
            "--out is for one writer, but there are {}; give each its name with placeholders", names)};
    setStepSetting(template_, writers[0].first, writers[0].second, options_.out);
}

void JobList::refuseStateful() const
{
    sourceToSplit();
    for (std::size_t i = 0; i < template_.steps.size(); ++i) {
        const StepInfo& info = *template_.steps[i].info;
        const bool isNumbered = std::any_of(info.settings.begin(), info.settings.end(),
                                            [](const SettingInfo& setting) { return setting.counted; });
        if (!isNumbered && !info.frames.isStateless)
            throw UsageError{
                fmt::format("--split: the frames of {} depend on one another, or go into one file",
                            stepLabel(template_, i))};
    }
}

// Only a series that is counted by this family of settings can be entered in the middle.
std::size_t JobList::sourceToSplit() const
{
    const StepInfo& info = *template_.steps[0].info;
    const SettingInfo* name = findSetting(info, "load.name");
    if (!info.source || name == nullptr || !name->counted)
        throw UsageError{
            fmt::format("--split: {} is not a source of numbered images", stepLabel(template_, 0))};
    return 0;
}

void JobList::addJobs(std::size_t row)
{
    Job job;
    job.row = row;
    if (options_.split == 0) {
        jobs_.push_back(job);
        return;
    }
    SeriesLengths lengths;
    const Pipeline pipeline = filled(jobs_.size(), job);
    const std::int64_t total = framesOf(pipeline, lengths).value_or(0);
    const auto name = effectiveValue(pipeline, sourceToSplit(), "load.name");
    if (total == 0)
        throw UsageError{fmt::format("--split: there is no picture {}",
                                     name && name->kind() == Kind::String ? name->as<std::string>() : "")};
    if (total > std::numeric_limits<std::int32_t>::max()) throw UsageError{"--split: the series has no end"};
    for (; job.first < total; job.first += options_.split) {
        job.frames = std::min(options_.split, total - job.first);
        jobs_.push_back(job);
    }
}

Pipeline JobList::filled(std::size_t n, const Job& job) const
{
    Pipeline pipeline = template_;
    fillPlaceholders(pipeline, Placeholders(inputs_, job.row, n));
    if (job.frames > 0) takePart(pipeline, job);
    setJobDefaults(pipeline);
    checkSettings(pipeline);
    return pipeline;
}

// Moves source and writers on to the frames of the part.
void JobList::takePart(Pipeline& pipeline, const Job& job) const
{
    pipeline.frames = job.frames;
    const std::size_t source = sourceToSplit();
    const int step = int(integerSetting(pipeline, source, "load.incr"));
    const auto move = [&](std::size_t i, const SettingInfo& setting, std::int64_t by) {
        std::string name = textSetting(pipeline, i, setting);
        const NumberedName before = numbered(name);
        advanceName(name, int(by));
        if (numbered(name).number != before.number + by)
            throw UsageError{fmt::format("--split: {} = {} has too few digits for the whole series",
                                         setting.path, textSetting(pipeline, i, setting))};
        setStepSetting(pipeline, i, setting.path, name);
    };
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i)
        for (const SettingInfo& setting : pipeline.steps[i].info->settings)
            if (setting.counted && setting.role == SettingRole::Output)
                move(i, setting, job.first);
            else if (setting.counted && i == source)
                move(i, setting, job.first * step);
}

void JobList::finish(std::size_t n, SeriesLengths& lengths)
try {
    Job& job = jobs_[n];
    const Pipeline pipeline = filled(n, job);
    for (const std::string& warning : pipeline.warnings)
        if (std::find(warnings_.begin(), warnings_.end(), warning) == warnings_.end() &&
            warnings_.size() < 20)
            warnings_.push_back(warning);
    if (n == 0) {
        const auto findings = checkPipeline(pipeline, {typeCheckOf(options_.types), true, false});
        for (const Finding& finding : findings)
            if (finding.code == kMisfit || finding.code == kUsage)
                throw BatchRefused(finding.code, finding.text);
    }
    job.outputs = outputsOf(pipeline, framesOf(pipeline, lengths));
    job.label = job.row < inputs_.rows.size() ? inputs_.rows[job.row].path : "";
    if (job.frames > 0) job.label = effectiveValue(pipeline, 0, "load.name")->as<std::string>();

    const Definition definition{jsonOf(pipeline), argumentsOf(pipeline)};
    KeyHash hash;
    hash.add(definition.pipeline);
    for (const std::string& argument : definition.arguments) hash.add(argument);
    hash.add(options_.strict ? "strict" : "");
    hash.add(job.outputs.empty() ? fmt::format("{}", n) : "");  // the same thing may be asked for twice
    job.key = hash.text();
} catch (const UsageError& error) {
    throw UsageError{jobs_.size() == 1 ? error.what() : fmt::format("job {}: {}", n, error.what())};
}

void JobList::refuseClashes()
{
    OutputRegister outputs;
    for (std::size_t n = 0; n < jobs_.size(); ++n)
        for (const Series& output : jobs_[n].outputs) outputs.add(n, output);
    const auto clash = outputs.find();
    if (clash.name.empty()) return;
    throw UsageError{
        fmt::format("jobs {} ({}) and {} ({}) both write {}{}", clash.first, label(clash.first), clash.second,
                    label(clash.second), clash.name,
                    clash.sameStart ? "" : "; --frames limits how many pictures each job takes")};
}

std::string JobList::inputState(std::size_t n) const
{
    SeriesLengths lengths;
    const Pipeline pipeline = filled(n, jobs_[n]);
    auto inputs = inputsOf(pipeline, framesOf(pipeline, lengths));
    if (inputs.empty() && jobs_[n].row < inputs_.rows.size())
        inputs.push_back({inputs_.rows[jobs_[n].row].path});
    return stateOf(inputs);
}

JobList::Definition JobList::definition(std::size_t n) const
{
    const Pipeline pipeline = filled(n, jobs_[n]);
    return {jsonOf(pipeline), argumentsOf(pipeline)};
}

}  // namespace scansteps::host
