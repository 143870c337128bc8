// scansteps run: runs a pipeline.
#include <cstdio>

#include "commands.h"
#include "output.h"
#include "report.h"
#include "report_file.h"
#include "runner.h"

namespace scansteps::host {

namespace {

// Says which neighbours do not fit; false when the run must not begin.
bool typesAllowRun(const Pipeline& pipeline, const std::string& mode)
{
    if (mode == "off") return true;
    for (const std::string& mismatch : typeMismatches(pipeline))
        if (mode == "warn")
            warn("types do not fit: {}", mismatch);
        else
            complain("types do not fit: {}", mismatch);
    return mode == "warn" || typeMismatches(pipeline).empty();
}

// A failure of a file of the host's own beside the errors of the run: the first error keeps the exit code.
template <class Work>
void noteFailure(RunFacts& facts, Work work)
{
    try {
        work();
    } catch (const FileError& error) {
        facts.errors.push_back({"", "", error.message});
        if (facts.exitCode == kEnded) facts.exitCode = kFileFailed;
    }
}

}  // namespace

int run(const RunOptions& options)
{
    Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    if (options.frames >= 0) pipeline.frames = options.frames;
    for (const std::string& warning : pipeline.warnings) warn("{}", warning);
    bool anySource = false;
    for (const PipelineStep& step : pipeline.steps) anySource = anySource || step.kind->source;
    if (!anySource && pipeline.frames == 0)
        warn("no step is a source and there is no --frames: the run does not end by itself");
    StepOutput stepOutput(options.stepOutput);
    ReportFile report(options.reportFile, stepOutput.original());
    if (!typesAllowRun(pipeline, options.types)) {
        RunFacts facts;
        facts.exitCode = kMisfit;
        for (const auto& mismatch : typeMismatches(pipeline)) facts.errors.push_back({"", "types", mismatch});
        report.write(reportText(facts));
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
    judgeTroubles(facts, pipeline, options.strict);
    noteFailure(facts, [&] { stepOutput.end(); });
    noteFailure(facts, [&] { report.write(reportText(facts)); });
    if (!options.quiet) printTimeTable(facts);
    printErrors(facts);
    return facts.exitCode;
}

}  // namespace scansteps::host
