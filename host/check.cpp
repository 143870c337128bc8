// scansteps check: types and settings of a pipeline, without running it.
#include <fmt/format.h>

#include <memory>

#include "commands.h"
#include "pipeline.h"
#include "runner.h"

namespace scansteps::host {

namespace {

struct CheckOptions
{
    std::string pipeline;
    std::vector<std::string> sets;
};

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

}  // namespace

Command addCheck(CLI::App& app)
{
    auto* command = app.add_subcommand("check", "Checks types and settings of a pipeline; nothing is run");
    auto options = std::make_shared<CheckOptions>();
    command->add_option("PIPELINE", options->pipeline, "As for run")->required();
    command->add_option("--set", options->sets, "PATH=VALUE, as for run")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    return [options] { return check(*options); };
}

}  // namespace scansteps::host
