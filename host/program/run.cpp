// scansteps run: runs a pipeline.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "commands.h"
#include "interrupts.h"
#include "library/descriptors.h"
#include "output.h"
#include "report.h"
#include "report_file.h"
#include "scansteps/host.h"
#include "standard_streams.h"

namespace scansteps::host {

namespace {

// Warnings, printed at once and kept for the report.
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

// Judges the checks before anything is sent.
RunReport judged(const std::vector<Finding>& findings, const Pipeline& pipeline, Warnings& warnings)
{
    RunReport facts;
    facts.exitCode = codeOf(findings);
    for (const Finding& finding : findings)
        if (finding.code == kEnded)
            warnings.add(finding.text);
        else
            facts.errors.push_back({"", "", finding.text});
    bool anySource = pipeline.frames != 0;
    for (const PipelineStep& step : pipeline.steps) anySource = anySource || step.info->source;
    if (!anySource)
        warnings.add("no step is a source and there is no --frames: the run does not end by itself");
    facts.warnedBefore = warnings.texts;
    return facts;
}

// Adds a failure of the program's own files to the errors of the run; the first error keeps the exit code.
template <class Work>
void noteFailure(RunReport& facts, Work work)
{
    try {
        work();
    } catch (const FileError& error) {
        facts.errors.push_back({"", "", error.what()});
        if (facts.exitCode == kEnded) facts.exitCode = kFileFailed;
    }
}

// Output of the steps that could not be written.
void judgeOutput(RunReport& facts, bool deserted, bool strict)
{
    const std::string_view trouble = flushStandardOutput();
    if (deserted)
        facts.errors.push_back({"", "", "the reader of standard output has gone away"});
    else if (!trouble.empty())
        (strict ? facts.errors : facts.warnings)
            .push_back({"", "", fmt::format("cannot write standard output: {}", trouble)});
    if (facts.exitCode == kEnded && (deserted || (strict && !trouble.empty()))) facts.exitCode = kFileFailed;
}

}  // namespace

int run(const RunOptions& options)
{
    const auto library = loadLibrary(options);
    Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    if (options.frames >= 0) pipeline.frames = options.frames;
    StepOutput stepOutput(options.stepOutput);
    ReportFile report(options.reportFile, stepOutput.original());
    Warnings warnings;
    const auto findings =
        checkPipeline(pipeline, {typeCheckOf(options.types), options.force, options.strict});
    RunReport facts = judged(findings, pipeline, warnings);
    if (facts.exitCode != kEnded) {
        noteFailure(facts, [&] { report.write(reportText(facts)); });
        printErrors(facts);
        return facts.exitCode;
    }

    catchInterrupts();
    bool deserted = false;
    {
        Progress progress(pipeline.frames, logLevel() > LogLevel::Error);
        Hooks hooks;
        hooks.onWarning = [&](const std::string& text) { warnings.add(text); };
        if (logLevel() == LogLevel::Info) hooks.onInfo = [](const std::string& text) { inform("{}", text); };
        hooks.interrupted = interrupted;
        hooks.wake = interruptWake();
        Chain* running = nullptr;
        if (options.stage)
            hooks.keeps = [&] {
                return !interrupted() && !deserted && !(options.strict && !running->troubles().empty());
            };
        hooks.readsOwnOutput = std::any_of(findings.begin(), findings.end(),
                                           [](const Finding& finding) { return finding.readsOwnOutput; });
        Chain chain(pipeline, *library, std::move(hooks));
        running = &chain;
        static_cast<RunFacts&>(facts) =
            runPipeline(chain, {.onFrame = [&](std::int64_t done) { progress.update(done); },
                                .stop = [&] { return deserted = standardOutputIsDeserted(); }});
    }
    facts.warnedBefore = warnings.texts;
    releaseInterrupts();
    // A file given for it is checked by end() below.
    if (deserted || options.stepOutput.empty() || options.stepOutput == "-")
        judgeOutput(facts, deserted, options.strict);
    judgeTroubles(facts, pipeline, options.strict);
    noteFailure(facts, [&] { stepOutput.end(); });
    noteFailure(facts, [&] { report.write(reportText(facts)); });
    if (logLevel() > LogLevel::Error) printTimeTable(facts);
    printErrors(facts);
    return facts.exitCode;
}

}  // namespace scansteps::host
