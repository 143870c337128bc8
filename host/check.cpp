// scansteps check: types, settings, frames and files of a pipeline, without running it.
#include "checks.h"
#include "commands.h"
#include "output.h"

namespace scansteps::host {

int check(const CheckOptions& options)
{
    const Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    const std::vector<Finding> findings = checkPipeline(pipeline, {options.types, options.force, false});
    for (const Finding& finding : findings)
        answer("{}: {}", finding.code == kEnded ? "warning" : "error", finding.text);
    const int code = codeOf(findings);
    if (code == kEnded) answer("ok: {} steps", pipeline.steps.size());
    return code;
}

}  // namespace scansteps::host
