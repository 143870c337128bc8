// A pipeline as the user wrote it, from a JSON file or a one-line description, and the checks that need
// nothing but the table of kinds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "json_values.h"
#include "scansteps/steps.h"

namespace scansteps::host {

struct PipelineStep
{
    const StepInfo* kind = nullptr;
    std::string name;  ///< instance name, may be empty
    Struct settings;   ///< merged into the initialise record just before the step
};

struct Pipeline
{
    Struct settings;          ///< the initialise record, without "eventType"
    Struct sets;              ///< merged into it: what --set says
    std::int64_t frames = 0;  ///< 0: no limit
    std::vector<PipelineStep> steps;
    std::vector<std::string> warnings;
};

/// Reads PIPELINE: a file ending in ".json", "-" for standard input, or a one-line description. `sets` are
/// PATH=VALUE for the initialise record. Throws UsageError.
Pipeline readPipeline(const std::string& pipeline, const std::vector<std::string>& sets);

/// A JSON pipeline, and a one-line description.
Pipeline pipelineFromJson(const Json& json);
Pipeline pipelineFromLine(const std::string& line);
/// PATH=VALUE into `sets`.
void applySet(Pipeline& pipeline, const std::string& assignment);

/// Merges struct entries key by key, replaces everything else. The values are new ones.
void mergeSettings(varitype& record, const Struct& settings);

/// Adds what looks wrong to `pipeline.warnings`; throws UsageError for values that cannot be taken.
void checkSettings(Pipeline& pipeline);
/// What a step finds under a path when it is initialised, as far as the pipeline says.
std::optional<varitype> effectiveValue(const Pipeline& pipeline, std::size_t index, const char* path);
/// Required settings that nothing sets, one line each.
std::vector<std::string> missingSettings(const Pipeline& pipeline);
/// Neighbours whose types do not fit, one line each ("ANY" fits everything, part by part).
std::vector<std::string> typeMismatches(const Pipeline& pipeline);

/// "step 2 (ccanny \"edges\")"
std::string stepLabel(const Pipeline& pipeline, std::size_t index);

}  // namespace scansteps::host
