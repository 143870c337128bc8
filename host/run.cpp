// scansteps run: runs a pipeline.
#include <fmt/format.h>

#include "checks.h"
#include "commands.h"
#include "output.h"
#include "platform.h"
#include "report.h"
#include "report_file.h"
#include "runner.h"
#include "standard_streams.h"

namespace scansteps::host {

namespace {

// What is worth a warning, printed at once and kept for the report.
class Warnings
{
  public:
    void add(const std::string& text)
    {
        warn("{}", text);
        texts.push_back(text);
    }
    std::vector<std::string> texts;
};

// The checks before anything is sent.
RunFacts checked(const Pipeline& pipeline, const CheckMode& mode, Warnings& warnings)
{
    const auto findings = checkPipeline(pipeline, mode);
    RunFacts facts;
    facts.exitCode = codeOf(findings);
    for (const Finding& finding : findings)
        if (finding.code == kEnded)
            warnings.add(finding.text);
        else
            facts.errors.push_back({"", "", finding.text});
    bool anySource = pipeline.frames != 0;
    for (const PipelineStep& step : pipeline.steps) anySource = anySource || step.kind->source;
    if (!anySource)
        warnings.add("no step is a source and there is no --frames: the run does not end by itself");
    facts.warnedBefore = warnings.texts;
    return facts;
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

// What the steps printed and nobody got.
void judgeOutput(RunFacts& facts, bool strict)
{
    const std::string_view trouble = flushStandardOutput();
    if (facts.outputDeserted)
        facts.errors.push_back({"", "", "the reader of standard output has gone away"});
    else if (!trouble.empty())
        (strict ? facts.errors : facts.warnings)
            .push_back({"", "", fmt::format("cannot write standard output: {}", trouble)});
    if (facts.exitCode == kEnded && (facts.outputDeserted || (strict && !trouble.empty())))
        facts.exitCode = kFileFailed;
}

}  // namespace

int run(const RunOptions& options)
{
    Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    if (options.frames >= 0) pipeline.frames = options.frames;
    StepOutput stepOutput(options.stepOutput);
    ReportFile report(options.reportFile, stepOutput.original());
    Warnings warnings;
    RunFacts facts = checked(pipeline, {options.types, options.force, options.strict}, warnings);
    if (facts.exitCode != kEnded) {
        noteFailure(facts, [&] { report.write(reportText(facts)); });
        printErrors(facts);
        return facts.exitCode;
    }

    const StepLibrary library(options.library);
    catchInterrupts();
    {
        Progress progress(pipeline.frames, !options.quiet);
        Runner runner(pipeline, library);
        runner.onWarning = [&](const std::string& text) { warnings.add(text); };
        runner.onFrame = [&](std::int64_t done) { progress.update(done); };
        facts = runner.run();
    }
    facts.warnedBefore = warnings.texts;
    releaseInterrupts();
    // A file that the user named for it is looked at below.
    if (facts.outputDeserted || options.stepOutput.empty() || options.stepOutput == "-")
        judgeOutput(facts, options.strict);
    judgeTroubles(facts, pipeline, options.strict);
    noteFailure(facts, [&] { stepOutput.end(); });
    noteFailure(facts, [&] { report.write(reportText(facts)); });
    if (!options.quiet) printTimeTable(facts);
    printErrors(facts);
    return facts.exitCode;
}

}  // namespace scansteps::host
