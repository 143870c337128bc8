// scansteps batch: runs one pipeline over many inputs, each in a process of its own.
#include "commands.h"
#include "scansteps/host.h"

#ifdef __linux__

#include <fmt/format.h>

#include <filesystem>

#include "batch_engines.h"
#include "batch_pipeline.h"
#include "batch_report.h"
#include "interrupts.h"
#include "library/descriptors.h"
#include "library/platform.h"
#include "output.h"
#include "report_file.h"

namespace scansteps::host {

namespace {

void makeFolders(const std::string& folder)
{
    for (const char* name : {"/logs", "/reports"}) createFolderOf(folder + name + "/");
}

}  // namespace

int batch(const BatchOptions& options)
try {
    const auto library = loadLibrary(options);  // its plug-ins have kinds of their own
    const JobList jobs(options);
    for (const std::string& warning : jobs.warnings()) warn("{}", warning);
    ReportFile report(options.reportFile, descriptor::kOutput);
    catchInterrupts();
    Journal journal(options.folder, options.resume);
    if (journal.spoilt() > 0) warn("{} lines of the journal are damaged", journal.spoilt());
    makeFolders(options.folder);
    BatchState state(options, jobs, journal);
    if (options.engine == "slurm") {
        runOnSlurm(state);
    } else {
        refuseRunningArray(state);
        runLocally(state);
    }
    state.show(true);
    releaseInterrupts();
    printClosingTable(state);
    report.write(batchReportText(state));
    return exitCodeOf(state);
} catch (const BatchRefused& refused) {
    complain("{}", refused.what());
    return refused.code;
}

}  // namespace scansteps::host

#else

namespace scansteps::host {

int batch(const BatchOptions&)
{
    throw UsageError{"batch runs on Linux only: elsewhere nothing ends the jobs of a batch that is killed"};
}

int batchTask(const BatchTaskOptions&)
{
    throw UsageError{"__task runs on Linux only"};
}

}  // namespace scansteps::host

#endif
