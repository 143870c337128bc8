// What `run` and `view` do before and after they drive a chain: loading, checks, interrupts, the report, and
// the exit code.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "report.h"
#include "report_file.h"
#include "scansteps/host.h"

namespace scansteps::host {

class PipelineRun
{
  public:
    /// Reads and checks the pipeline. Throws UsageError and FileError.
    explicit PipelineRun(const RunOptions& options);
    PipelineRun(const PipelineRun&) = delete;
    PipelineRun& operator=(const PipelineRun&) = delete;

    /// Whether the checks found an error: nothing is run then.
    bool isRefused() const { return facts_.exitCode != kEnded; }
    /// Reports the errors of the checks; returns the exit code.
    int refuse();

    const Pipeline& pipeline() const { return pipeline_; }
    const StepLibrary& library() const { return *library_; }
    /// Including the warning that nothing ends the run.
    const std::vector<Finding>& findings() const { return findings_; }
    /// For the chain. Interrupts are caught from now on.
    Hooks hooks();
    /// The chain of the hooks, which has to live until its run has ended.
    void watch(const Chain& chain) { chain_ = &chain; }
    /// RunHooks::stop: whether the reader of standard output has gone away.
    bool stops();
    bool isDeserted() const { return deserted_; }

    /// Reports the run. Returns its facts with the exit code of the program.
    const RunReport& end(RunFacts facts);

  private:
    void warnOf(const std::string& text);
    template <class Work>
    void noteFailure(Work work);
    void judgeOutput();

    RunOptions options_;
    std::unique_ptr<StepLibrary> library_;
    Pipeline pipeline_;
    StepOutput stepOutput_;
    ReportFile report_;
    std::vector<Finding> findings_;
    RunReport facts_;
    const Chain* chain_ = nullptr;
    bool deserted_ = false;
};

}  // namespace scansteps::host
