// Runs all checks of a pipeline; the check of --set is here.
#include "checks.h"

#include <fmt/format.h>

#include <algorithm>

#include "scansteps/settings.h"
#include "setting_lookup.h"

namespace scansteps::host {

namespace {

void leafPaths(const Struct& settings, const std::string& prefix, std::vector<std::string>& paths)
{
    for (const auto& [key, value] : settings) {
        if (value.kind() == Kind::Struct && value.hasPayload())
            leafPaths(value.as<Struct>(), prefix + key + ".", paths);
        else
            paths.push_back(prefix + key);
    }
}

// A setting of a step wins over --set.
void checkSets(const Pipeline& pipeline, std::vector<Finding>& findings)
{
    std::vector<std::string> paths;
    leafPaths(pipeline.sets, "", paths);
    for (const std::string& path : paths) {
        bool isRead = false, hasEffect = false, isOverridden = false;
        for (const PipelineStep& step : pipeline.steps) {
            isOverridden = isOverridden || findPath(varitype{Struct(step.settings)}, path);
            if (findSetting(*step.info, path) == nullptr) continue;
            isRead = true;
            hasEffect = hasEffect || !isOverridden;
        }
        if (isRead && !hasEffect)
            findings.push_back(
                {kEnded, fmt::format("--set {} has no effect: the pipeline sets it in a step", path)});
    }
}

}  // namespace

std::vector<Finding> checkPipeline(const Pipeline& pipeline, const CheckMode& mode)
{
    std::vector<Finding> findings;
    for (const std::string& warning : pipeline.warnings) findings.push_back({kEnded, warning});
    checkSets(pipeline, findings);
    checkTypes(pipeline, mode, findings);
    checkRequired(pipeline, findings);
    checkFrames(pipeline, findings);
    checkFiles(pipeline, mode, findings);
    return findings;
}

ExitCode codeOf(const std::vector<Finding>& findings)
{
    for (const ExitCode code : {kMisfit, kUsage, kFileFailed})
        if (std::any_of(findings.begin(), findings.end(), [&](const Finding& f) { return f.code == code; }))
            return code;
    return kEnded;
}

}  // namespace scansteps::host
