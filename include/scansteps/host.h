// The host library: reads and checks pipelines, loads the step library and drives chains. The program
// `scansteps` is made of it, and so is any host of your own:
//
//     const scansteps::host::StepLibrary library;
//     scansteps::host::Chain chain(scansteps::host::readPipeline(argv[1]), library);
//     return scansteps::host::runPipeline(chain).exitCode;
//
// Nothing here prints. Errors are UsageError, FileError and StepError, all of them std::runtime_error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "scansteps/chain.h"
#include "scansteps/handles.h"
#include "scansteps/record.h"
#include "scansteps/steps.h"
#include "scansteps/texture.h"
#include "scansteps/trouble.h"

namespace scansteps::host {

/// How a run ended; exit codes of the program.
enum ExitCode : int
{
    kEnded = 0,
    kUsage = 2,       ///< the command line or the pipeline is wrong
    kMisfit = 3,      ///< types or formats do not fit
    kStepFailed = 4,  ///< a step raised an error
    kFileFailed = 5,  ///< a file or a connection of the host's own failed
    kInterrupted = 130,
};

/// A wrong pipeline or setting.
struct UsageError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// A file, a library or a connection of the host's own that failed.
struct FileError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Pipelines.

struct PipelineStep
{
    const StepInfo* info = nullptr;  ///< never null in a pipeline; of findStep(), or the caller's own
    std::string name;                ///< instance name, may be empty
    Struct settings;                 ///< merged into the initialise record just before the step
    /// Makes a step that the step library does not have. It is called when a Chain is made.
    std::function<std::unique_ptr<cChain>()> create = {};
};

struct Pipeline
{
    Struct settings;          ///< the initialise record, without "eventType"
    Struct sets;              ///< merged into it; these win over what a recording says
    std::int64_t frames = 0;  ///< 0: no limit
    std::vector<PipelineStep> steps;
    std::vector<std::string> warnings;  ///< of checkSettings()
};

/// Reads a file whose name ends in ".json", "-" for standard input, or a one-line description, applies `sets`
/// (each PATH=VALUE) and checks the settings. Throws UsageError.
Pipeline readPipeline(const std::string& pipeline, const std::vector<std::string>& sets = {});
/// The same without the check of the settings, for pipelines with placeholders: a text for which `keep` is
/// true is the value of its setting, whatever kind the setting is of.
using KeepText = std::function<bool(const std::string&)>;
Pipeline readTemplate(const std::string& pipeline, const std::vector<std::string>& sets,
                      const KeepText& keep);

/// The text of a JSON pipeline, and a one-line description. The settings are not checked yet. Throw
/// UsageError.
Pipeline pipelineFromJson(const std::string& text);
Pipeline pipelineFromLine(const std::string& line);
/// PATH=VALUE into `sets`. Throws UsageError.
void applySet(Pipeline& pipeline, const std::string& assignment);
/// PATH=VALUE into the settings of a step. Throws UsageError.
void applySet(Pipeline& pipeline, std::size_t step, const std::string& assignment);
/// Converts the settings to the kinds that the steps declare and sets `warnings` to what looks wrong. To be
/// called again when settings were changed. Throws UsageError for values that cannot be taken.
void checkSettings(Pipeline& pipeline);

/// Merges struct entries key by key, replaces everything else. The values are new ones.
void mergeSettings(varitype& record, const Struct& settings);
/// The value that a step finds under a path when it is initialised, as far as the pipeline says.
std::optional<varitype> effectiveValue(const Pipeline& pipeline, std::size_t step, const char* path);
/// The pipeline as the text of a JSON file, and as arguments of `scansteps run` quoted for a POSIX shell.
/// `sets` are among the settings of both.
std::string pipelineJson(const Pipeline& pipeline);
std::string pipelineArguments(const Pipeline& pipeline);
/// "step 2 (ccanny \"edges\")"
std::string stepLabel(const Pipeline& pipeline, std::size_t step);

// Checks before a run.

struct Finding
{
    ExitCode code = kEnded;  ///< of the error that it is; kEnded for a warning
    std::string text;
    std::optional<std::size_t> step = {};  ///< index of the step that it is about
    bool readsOwnOutput = false;           ///< the step writes a file that the run reads
};

enum class TypeCheck
{
    Error,  ///< neighbours whose types do not fit are an error
    Warn,
    Off,
};

struct CheckMode
{
    TypeCheck types = TypeCheck::Error;
    bool force = false;   ///< a chain may write what it reads
    bool strict = false;  ///< a missing input is an error
};

/// Everything that can be found without running the pipeline, its `warnings` included.
std::vector<Finding> checkPipeline(const Pipeline& pipeline, const CheckMode& mode = {});
/// Exit code of the findings: types first, then settings and files; kEnded when all are warnings.
ExitCode codeOf(const std::vector<Finding>& findings);

// Chains.

class SharedLibrary;

enum class LogLevel
{
    Error,
    Warning,
    Info,
};
/// Takes what the host library reports of its work.
using Log = std::function<void(LogLevel, const std::string&)>;

struct PluginInfo
{
    std::string name, version, file;
    std::vector<std::string> kinds;
};

/// The step library and the plug-ins beside it, loaded at run time. The kinds of a plug-in are then known
/// like the library's own, in the whole process and until its end.
class StepLibrary
{
  public:
    /// Loads `path` when it is given, else looks at the variable SCANSTEPS_LIBRARY, beside the program, in
    /// ../lib and in the system's loader path. Then loads the plug-ins: every library in the folder
    /// scansteps/ beside the step library or in ../lib/scansteps, of which broken ones are left out with a
    /// warning, those of the path list SCANSTEPS_PLUGINS, and `plugins`. Throws FileError that says where it
    /// looked, or what is wrong with a plug-in that was named.
    explicit StepLibrary(const std::string& path = "", const std::vector<std::string>& plugins = {},
                         const Log& log = {});
    ~StepLibrary();
    StepLibrary(const StepLibrary&) = delete;
    StepLibrary& operator=(const StepLibrary&) = delete;

    void setHandles(HandleTable* table) const;
    std::unique_ptr<cChain> create(const std::string& kind) const;
    /// All that are loaded in this process.
    static std::vector<PluginInfo> plugins();

  private:
    std::unique_ptr<SharedLibrary> library_;
};

/// File and reason of a failure; both empty when nothing is known.
struct FileReason
{
    std::string file, reason;
    /// "run.rec: No space left on device"
    std::string text() const;
};

enum class Phase
{
    Initialise,
    Process,
    Flush,
};

/// An error that a step raised (kStepFailed), or a format that does not fit (kMisfit). what() is the step's
/// message on one line, with file and reason where they are known.
struct StepError : std::runtime_error
{
    StepError(ExitCode exitCode, std::size_t index, const std::string& message)
        : std::runtime_error(message), code(exitCode), step(index)
    {
    }
    ExitCode code;
    std::size_t step;  ///< index in the pipeline
    std::string kind;
    std::string name;  ///< instance name, may be empty
    Phase phase = Phase::Initialise;
    std::int64_t frame = 0;  ///< from 1; 0 outside Phase::Process
    FileReason file;
    bool gaveUp = false;  ///< the step ended a wait, as Hooks::interrupted asked for
};

/// Troubles of one sort that one step reported and survived.
struct TroubleFacts
{
    Trouble trouble{};
    std::size_t step = 0;  ///< index in the pipeline
    std::int64_t count = 0;
    FileReason first;
    std::int64_t tried = 0;  ///< process events that the step was given
};
/// "stopped at img0004.jpg: ..."
std::string troubleText(const TroubleFacts& facts);

struct StepFacts
{
    std::string kind, className, name;
    std::optional<double> seconds;  ///< of the chain's thread; none for a step that keeps no time
    double workerSeconds = 0;       ///< of the step's own threads, as of the last flush
};

/// What the caller of a chain offers it. Each may be empty.
struct Hooks
{
    /// A warning during the run, once each, or, when the chain is destroyed, about handles that its steps did
    /// not release.
    std::function<void(const std::string&)> onWarning = {};
    /// What the chain does besides: settings merged, records that a step did not pass on.
    std::function<void(const std::string&)> onInfo = {};
    /// Sees every record on its way into the step at `position`, or, at the number of steps, to the end of
    /// the chain. A frame lies under its "handle" (pixelsOf()) during the call. What it throws counts as the
    /// step's error.
    std::function<void(std::size_t position, const varitype& record)> observe = {};
    /// Whether waits of the steps are to end. Called on any thread.
    std::function<bool()> interrupted = {};
    /// HostServices::wake for `interrupted`.
    std::intptr_t wake = -1;
    /// Where given, recordings take their names only at the flush, if no step raised an error and this
    /// returns true.
    std::function<bool()> keeps = {};
    /// The run writes files that it reads (CheckMode::force): steps neither read ahead nor write behind.
    bool readsOwnOutput = false;
};

/// The linked steps of a pipeline with their handle table. Chains are used by one thread; several may be
/// alive and take turns as long as none of them captures.
class Chain
{
  public:
    /// The library must outlive the chain. Throws FileError for a step that the library lacks.
    Chain(Pipeline pipeline, const StepLibrary& library, Hooks hooks = {});
    ~Chain();
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    /// Settings may be changed before initialise(), steps may not.
    Pipeline& pipeline();
    const Pipeline& pipeline() const;

    /// Sends the initialise event; may be called again. Throws StepError, as do the next ones.
    void initialise();
    /// Initialises again those steps alone whose settings, or the description of whose frames, have changed
    /// in pipeline() since they were initialised: a source goes on where it is, files stay open. To be called
    /// between events. Throws StepError.
    void update();
    /// Sends a process event with a zeroed input(), where there is one. False when the source has ended.
    bool process();
    /// Sends `record` as a process event, with input() as its "handle" where it has none, and leaves in it
    /// what the first step left.
    bool process(varitype& record);
    /// The same. Returns the last process event that reached the end of the chain, if one did; its frame is
    /// valid until the next event.
    std::optional<varitype> transform(varitype& record);
    /// Ends the run: files are completed. To be called also after an error.
    void flush();

    /// The caller's frame for a chain that does not begin with a source, of the size and format that
    /// initialise() was given; no buffer where these were not known. Installs the handle table of the chain.
    TextureSet& input();

    /// Times since initialise().
    std::vector<StepFacts> steps() const;
    std::vector<TroubleFacts> troubles() const;
    bool interrupted() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// Runs.

struct RunFacts
{
    ExitCode exitCode = kEnded;
    std::int64_t frames = 0;  ///< process events that were dispatched and did not end the run
    double seconds = 0;       ///< of the whole run, initialise and flush included
    std::vector<StepFacts> steps;
    struct Message
    {
        std::string where;  ///< "step 2 (ccanny)"; may be empty, as may all but the message
        std::string phase;  ///< "initialise", "frame 7", "flush"
        std::string message;
        FileReason file = {};  ///< of a file that failed
    };
    std::vector<Message> errors;
    bool outOfMemory = false;            ///< an error for which there was no memory, not even in `errors`
    std::vector<TroubleFacts> troubles;  ///< that steps survived
};

struct RunHooks
{
    /// Called after every frame with the number of frames done.
    std::function<void(std::int64_t)> onFrame = {};
    /// Asked before every frame: true ends the run with a flush.
    std::function<bool()> stop = {};
};

/// Runs a chain to its end: initialise, one event a frame, flush. Step errors are in the facts.
RunFacts runPipeline(Chain& chain, const RunHooks& hooks = {});

}  // namespace scansteps::host
