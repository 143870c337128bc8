// scansteps run: runs a pipeline.
#include <fmt/format.h>

#include "commands.h"
#include "report.h"
#include "runner.h"

namespace scansteps::host {

namespace {

// Says which neighbours do not fit; false when the run must not begin.
bool typesAllowRun(const Pipeline& pipeline, const std::string& mode)
{
    if (mode == "off") return true;
    for (const std::string& mismatch : typeMismatches(pipeline))
        fmt::print(stderr, "scansteps: {}: types do not fit: {}\n", mode == "warn" ? "warning" : "error",
                   mismatch);
    return mode == "warn" || typeMismatches(pipeline).empty();
}

}  // namespace

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
    judgeTroubles(facts, pipeline, options.strict);
    printErrors(facts);
    report.write(facts);
    return facts.exitCode;
}

}  // namespace scansteps::host
