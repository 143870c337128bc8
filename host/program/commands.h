// The subcommands of the program with their options; they return exit codes. Only main.cpp includes the
// parser, whose headers are slow to compile.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "scansteps/host.h"

namespace scansteps::host {

/// What commands that know steps load.
struct LibraryOptions
{
    std::string library;
    std::vector<std::string> plugins;
    bool quiet = false, verbose = false;
};
/// Loads the step library and the plug-ins; what the loader finds missing memory for ends the program.
std::unique_ptr<StepLibrary> loadLibrary(const LibraryOptions& options);
/// Kinds by the name of their plug-in; those of the step library come first, under "".
std::map<std::string, std::vector<const StepInfo*>> stepsByPlugin();

struct RunOptions : LibraryOptions
{
    std::string pipeline, reportFile, stepOutput;
    std::vector<std::string> sets;
    std::int64_t frames = -1;  ///< -1: as the pipeline says; 0: no limit
    std::string types = "error";
    bool strict = false, force = false, stage = false;
};
int run(const RunOptions& options);

struct BatchOptions : LibraryOptions
{
    std::string pipeline, each, list, out, reportFile;
    std::string folder = "scansteps-batch", engine = "local", types = "error";
    std::vector<std::string> sets;
    std::int64_t frames = -1;  ///< as for run
    std::int64_t split = 0;    ///< frames a job; 0: inputs are not divided
    int jobs = 0;              ///< at once; 0: one a processor, or as many as Slurm runs
    int retries = 0;
    double retryDelay = 1;  ///< seconds before the first further attempt
    bool resume = false, strict = false, force = false;
    std::string partition, timeLimit, memory;  ///< for sbatch, as it takes them
    std::vector<std::string> sbatch;           ///< further options for it
};
int batch(const BatchOptions& options);

/// One task of a job array, started by Slurm.
struct BatchTaskOptions
{
    std::string plan;
};
int batchTask(const BatchTaskOptions& options);

/// "error", "warn" or "off".
TypeCheck typeCheckOf(const std::string& types);

struct CheckOptions : LibraryOptions
{
    std::string pipeline;
    std::vector<std::string> sets;
    std::string types = "error";
    bool force = false;
};
int check(const CheckOptions& options);

struct StepsOptions : LibraryOptions
{
    std::string kind;
    bool json = false, markdown = false, schema = false;
};
int steps(const StepsOptions& options);

struct InspectOptions : LibraryOptions
{
    std::vector<std::string> recordings;
    std::string frames, recover;
    bool json = false, data = false, model = false, skipDamage = false;
};
int inspect(const InspectOptions& options);

struct NewStepOptions : LibraryOptions
{
    std::string name;
    std::string project;  ///< folder of a project of its own; empty: in the source tree
};
int newStep(const NewStepOptions& options);

struct DevicesOptions
{
    bool json = false;
};
int devices(const DevicesOptions& options);

struct ReceiveOptions
{
    std::uint16_t port = 0;
    std::string bind = "127.0.0.1";
    std::string out;
    bool once = false, force = false;
    std::size_t clients = 16;
    std::uint64_t maxRecord = std::uint64_t{1} << 30, maxTotal = std::uint64_t{100} << 30, maxFiles = 10000;
    double idleTimeout = 30;  ///< seconds that a record may take, plus one second per megabyte
    double maxPause = 300;    ///< seconds until the next record begins; 0: no limit
};
int receive(const ReceiveOptions& options);

/// `pipeline` may also be a recording or a model.
struct ViewOptions : RunOptions
{
    std::uint16_t port = 0;
    std::string bind = "127.0.0.1";
    bool open = false, paused = false;
};
int view(const ViewOptions& options);

}  // namespace scansteps::host
