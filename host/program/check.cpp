// scansteps check: types, settings, frames and files of a pipeline, without running it.
#include "commands.h"
#include "output.h"
#include "scansteps/host.h"

namespace scansteps::host {

TypeCheck typeCheckOf(const std::string& types)
{
    if (types == "off") return TypeCheck::Off;
    return types == "warn" ? TypeCheck::Warn : TypeCheck::Error;
}

int check(const CheckOptions& options)
{
    const auto library = loadLibrary(options);
    const Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    const std::vector<Finding> findings =
        checkPipeline(pipeline, {typeCheckOf(options.types), options.force, false});
    for (const Finding& finding : findings)
        answer("{}: {}", finding.code == kEnded ? "warning" : "error", finding.text);
    const int code = codeOf(findings);
    if (code == kEnded) answer("ok: {} steps", pipeline.steps.size());
    return code;
}

}  // namespace scansteps::host
