// scansteps check: types and settings of a pipeline, without running it.
#include "commands.h"
#include "output.h"
#include "pipeline.h"
#include "runner.h"

namespace scansteps::host {

int check(const CheckOptions& options)
{
    const Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    int code = kEnded;
    for (const std::string& warning : pipeline.warnings) answer("warning: {}", warning);
    for (const std::string& mismatch : typeMismatches(pipeline)) {
        answer("error: types do not fit: {}", mismatch);
        code = kMisfit;
    }
    for (const std::string& missing : missingSettings(pipeline)) {
        answer("error: {}", missing);
        code = kUsage;
    }
    if (code == kEnded) answer("ok: {} steps", pipeline.steps.size());
    return code;
}

}  // namespace scansteps::host
