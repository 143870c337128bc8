// What a batch does to the pipeline of a job: fills it, reads names from it, writes it down.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "batch_inputs.h"
#include "batch_series.h"
#include "scansteps/host.h"

namespace scansteps::host {

/// A batch that does not begin, with its exit code.
struct BatchRefused : std::runtime_error
{
    BatchRefused(ExitCode exitCode, const std::string& text) : std::runtime_error(text), code(exitCode) {}
    ExitCode code;
};

/// Fills every text of the settings. A text of a setting of another kind becomes a value of that kind.
/// Throws UsageError.
void fillPlaceholders(Pipeline& pipeline, const Placeholders& values);
/// A setting inside a step, which wins over all others.
void setStepSetting(Pipeline& pipeline, std::size_t step, const std::string& path, const varitype& value);

/// What the step will find, or the default.
std::int64_t integerSetting(const Pipeline& pipeline, std::size_t step, const char* path);
std::string textSetting(const Pipeline& pipeline, std::size_t step, const SettingInfo& setting);

/// Frames that the pipeline will process; nothing where that is not known.
std::optional<std::int64_t> framesOf(const Pipeline& pipeline, SeriesLengths& lengths);
std::vector<Series> inputsOf(const Pipeline& pipeline, std::optional<std::int64_t> frames);
std::vector<Series> outputsOf(const Pipeline& pipeline, std::optional<std::int64_t> frames);

/// The pipeline as a pipeline file, without what --set gave. Throws UsageError for text that is not UTF-8.
std::string jsonOf(const Pipeline& pipeline);
/// --set PATH=VALUE for all that it gave.
std::vector<std::string> argumentsOf(const Pipeline& pipeline);

}  // namespace scansteps::host
