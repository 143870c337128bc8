// The order matters: outputs are opened before the checks, so that what cannot be written is known at once.
#include "pipeline_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "interrupts.h"
#include "output.h"
#include "standard_streams.h"

namespace scansteps::host {

namespace {

Pipeline pipelineOf(const RunOptions& options)
{
    Pipeline pipeline = readPipeline(options.pipeline, options.sets);
    if (options.frames >= 0) pipeline.frames = options.frames;
    return pipeline;
}

bool endsByItself(const Pipeline& pipeline)
{
    return pipeline.frames != 0 || std::any_of(pipeline.steps.begin(), pipeline.steps.end(),
                                               [](const PipelineStep& step) { return step.info->source; });
}

}  // namespace

PipelineRun::PipelineRun(const RunOptions& options)
    : options_(options),
      library_(loadLibrary(options)),
      pipeline_(pipelineOf(options)),
      stepOutput_(options.stepOutput),
      report_(options.reportFile, stepOutput_.original()),
      findings_(checkPipeline(pipeline_, {typeCheckOf(options.types), options.force, options.strict}))
{
    facts_.exitCode = codeOf(findings_);
    if (!endsByItself(pipeline_))
        findings_.push_back(
            {kEnded, "no step is a source and there is no --frames: the run does not end by itself"});
    for (const Finding& finding : findings_)
        if (finding.code == kEnded)
            warnOf(finding.text);
        else
            facts_.errors.push_back({"", "", finding.text});
}

void PipelineRun::warnOf(const std::string& text)
{
    warn("{}", text);
    facts_.warnedBefore.push_back(text);
}

// Adds a failure of the program's own files to the errors of the run; the first error keeps the exit code.
template <class Work>
void PipelineRun::noteFailure(Work work)
{
    try {
        work();
    } catch (const FileError& error) {
        facts_.errors.push_back({"", "", error.what()});
        if (facts_.exitCode == kEnded) facts_.exitCode = kFileFailed;
    }
}

int PipelineRun::refuse()
{
    noteFailure([&] { report_.write(reportText(facts_)); });
    printErrors(facts_);
    return facts_.exitCode;
}

Hooks PipelineRun::hooks()
{
    catchInterrupts();
    Hooks hooks;
    hooks.onWarning = [this](const std::string& text) { warnOf(text); };
    if (logLevel() == LogLevel::Info) hooks.onInfo = [](const std::string& text) { inform("{}", text); };
    hooks.interrupted = interrupted;
    hooks.wake = interruptWake();
    if (options_.stage)
        hooks.keeps = [this] {
            return !interrupted() && !deserted_ && !(options_.strict && !chain_->troubles().empty());
        };
    hooks.readsOwnOutput = std::any_of(findings_.begin(), findings_.end(),
                                       [](const Finding& finding) { return finding.readsOwnOutput; });
    return hooks;
}

bool PipelineRun::stops()
{
    return deserted_ = standardOutputIsDeserted();
}

// Output of the steps that could not be written.
void PipelineRun::judgeOutput()
{
    const std::string_view trouble = flushStandardOutput();
    if (deserted_)
        facts_.errors.push_back({"", "", "the reader of standard output has gone away"});
    else if (!trouble.empty())
        (options_.strict ? facts_.errors : facts_.warnings)
            .push_back({"", "", fmt::format("cannot write standard output: {}", trouble)});
    if (facts_.exitCode == kEnded && (deserted_ || (options_.strict && !trouble.empty())))
        facts_.exitCode = kFileFailed;
}

const RunReport& PipelineRun::end(RunFacts facts)
{
    static_cast<RunFacts&>(facts_) = std::move(facts);
    // A file given for it is checked by end() below.
    if (deserted_ || options_.stepOutput.empty() || options_.stepOutput == "-") judgeOutput();
    judgeTroubles(facts_, pipeline_, options_.strict);
    noteFailure([&] { stepOutput_.end(); });
    noteFailure([&] { report_.write(reportText(facts_)); });
    if (logLevel() > LogLevel::Error) printTimeTable(facts_);
    printErrors(facts_);
    return facts_;
}

}  // namespace scansteps::host
