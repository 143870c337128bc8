// scansteps run: runs a pipeline.
#include <fmt/format.h>

#include <memory>

#include "commands.h"
#include "report.h"
#include "runner.h"

namespace scansteps::host {

namespace {

struct RunOptions
{
    std::string pipeline, library, reportFile;
    std::vector<std::string> sets;
    std::int64_t frames = -1;
    std::string types = "error";
    bool quiet = false;
};

// Says which neighbours do not fit; false when the run must not begin.
bool typesAllowRun(const Pipeline& pipeline, const std::string& mode)
{
    if (mode == "off") return true;
    for (const std::string& mismatch : typeMismatches(pipeline))
        fmt::print(stderr, "scansteps: {}: types do not fit: {}\n", mode == "warn" ? "warning" : "error",
                   mismatch);
    return mode == "warn" || typeMismatches(pipeline).empty();
}

int run(const RunOptions& options)
{
    Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    if (options.frames >= 0) pipeline.frames = options.frames;
    for (const std::string& warning : pipeline.warnings)
        fmt::print(stderr, "scansteps: warning: {}\n", warning);
    bool anySource = false;
    for (const PipelineStep& step : pipeline.steps) anySource = anySource || step.kind->source;
    if (!anySource && pipeline.frames == 0)
        fmt::print(stderr,
                   "scansteps: warning: no step is a source and there is no --frames: the run does not end "
                   "by itself\n");
    // Opened before the run: a report that cannot be written is known at once.
    auto report = ReportFile::open(options.reportFile);
    if (!typesAllowRun(pipeline, options.types)) {
        RunFacts facts;
        facts.exitCode = kMisfit;
        for (const auto& mismatch : typeMismatches(pipeline)) facts.errors.push_back({"", "types", mismatch});
        report.write(facts);
        return kMisfit;
    }

    const StepLibrary library(options.library);
    catchInterrupts();
    RunFacts facts;
    {
        Progress progress(pipeline.frames, !options.quiet);
        Runner runner(pipeline, library);
        runner.onFrame = [&](std::int64_t done) { progress.update(done); };
        facts = runner.run();
    }
    std::fflush(stdout);
    if (!options.quiet) printTimeTable(facts);
    if (facts.exitCode == kEnded && facts.frames == 0)
        fmt::print(stderr, "scansteps: warning: the source had no frame to deliver\n");
    printErrors(facts);
    report.write(facts);
    return facts.exitCode;
}

}  // namespace

Command addRun(CLI::App& app)
{
    auto* command = app.add_subcommand("run", "Runs a pipeline");
    auto options = std::make_shared<RunOptions>();
    command
        ->add_option("PIPELINE", options->pipeline,
                     "A .json file, - for standard input, or steps separated by \"!\"")
        ->required();
    command->add_option("--set", options->sets, "PATH=VALUE: a setting of the initialise record")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    command->add_option("--frames", options->frames, "Stops after that many frames; 0: no limit")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--library", options->library, "The step library to load");
    command->add_option("--types", options->types, "When types of neighbours do not fit: error, warn or off")
        ->check(CLI::IsMember({"error", "warn", "off"}));
    command->add_flag("--quiet", options->quiet, "No progress and no table of times");
    command->add_option("--report", options->reportFile, "Writes the facts of the run as JSON");
    return [options] { return run(*options); };
}

}  // namespace scansteps::host
