// scansteps check: types and settings of a pipeline, without running it.
#include <fmt/format.h>

#include "commands.h"
#include "pipeline.h"
#include "runner.h"

namespace scansteps::host {

int check(const CheckOptions& options)
{
    const Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    int code = kEnded;
    for (const std::string& warning : pipeline.warnings) fmt::print("warning: {}\n", warning);
    for (const std::string& mismatch : typeMismatches(pipeline)) {
        fmt::print("error: types do not fit: {}\n", mismatch);
        code = kMisfit;
    }
    for (const std::string& missing : missingSettings(pipeline)) {
        fmt::print("error: {}\n", missing);
        code = kUsage;
    }
    if (code == kEnded) fmt::print("ok: {} steps\n", pipeline.steps.size());
    return code;
}

}  // namespace scansteps::host
