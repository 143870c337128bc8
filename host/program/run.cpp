// scansteps run: runs a pipeline.
#include "commands.h"
#include "interrupts.h"
#include "output.h"
#include "pipeline_run.h"
#include "report.h"
#include "scansteps/host.h"

namespace scansteps::host {

int run(const RunOptions& options)
{
    PipelineRun run(options);
    if (run.isRefused()) return run.refuse();
    RunFacts facts;
    {
        Progress progress(run.pipeline().frames, logLevel() > LogLevel::Error);
        Chain chain(run.pipeline(), run.library(), run.hooks());
        run.watch(chain);
        facts = runPipeline(chain, {.onFrame = [&](std::int64_t done) { progress.update(done); },
                                    .stop = [&] { return run.stops(); }});
    }
    releaseInterrupts();
    return run.end(std::move(facts)).exitCode;
}

}  // namespace scansteps::host
