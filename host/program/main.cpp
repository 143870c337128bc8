// scansteps: parses the command line and calls the subcommand.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include "commands.h"
#include "console.h"
#include "external_commands.h"
#include "interrupts.h"
#include "library/descriptors.h"
#include "library/usage_hints.h"
#include "output.h"
#include "parser_help.h"
#include "scansteps/host.h"
#include "standard_streams.h"

using namespace scansteps::host;

namespace {

int fail(int code, std::string_view message) noexcept
{
    complain("{}", message);
    return code;
}

// The terminate handler, reached by an exception in a destructor, for example.
[[noreturn]] void endWithoutCleanup() noexcept
{
    static std::atomic_flag ending;
    // Without a current exception there was no memory to allocate one.
    if (ending.test_and_set() || !std::current_exception()) {
        descriptor::writeAll(descriptor::kErrors, "scansteps: error: out of memory\n");
        endAtOnce(kFileFailed);
    }
    const char* message = "unexpected end";
    try {
        throw;
    } catch (const std::bad_alloc&) {
        message = "out of memory";
    } catch (...) {
    }
    endAtOnce(fail(kFileFailed, message));
}

// Runs before the constructors of static objects.
[[gnu::constructor(101)]] void prepare()
{
    std::set_terminate(endWithoutCleanup);
    prepareStandardStreams();
}

using Command = std::function<int()>;

void useLogLevel(const LibraryOptions& options)
{
    if (options.quiet) setLogLevel(LogLevel::Error);
    if (options.verbose) setLogLevel(LogLevel::Info);
}

// Options of a subcommand; they must outlive the parser.
template <class Options>
Command command(int (*work)(const Options&), std::shared_ptr<Options> options)
{
    return [work, options] {
        if constexpr (std::is_base_of_v<LibraryOptions, Options>) useLogLevel(*options);
        return work(*options);
    };
}

void addPipeline(CLI::App& app, std::string& pipeline, std::vector<std::string>& sets, const char* what)
{
    app.add_option("PIPELINE", pipeline, what)->required();
    app.add_option("--set", sets, "A setting of the initialise record")
        ->type_name("PATH=VALUE")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
}

void addLibraries(CLI::App& app, LibraryOptions& options)
{
    app.add_option("--library", options.library, "The step library to load")->type_name("FILE");
    app.add_option("--plugin", options.plugins, "A plug-in to load beside it; may be given several times")
        ->type_name("FILE")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    auto* quiet = app.add_flag("--quiet", options.quiet, "Reports errors only, as SCANSTEPS_LOG=error does");
    app.add_flag("-v,--verbose", options.verbose,
                 "Also reports what is loaded and done, as SCANSTEPS_LOG=info does")
        ->excludes(quiet);
}

void addChecks(CLI::App& app, std::string& types, bool& force)
{
    app.add_option("--types", types, "When types of neighbours do not fit: error, warn or off")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"error", "warn", "off"}));
    app.add_flag("--force", force, "The run may write over the files that it reads");
}

void addFrames(CLI::App& app, std::int64_t& frames)
{
    app.add_option("--frames", frames, "Stops after that many frames; 0: no limit")
        ->type_name("N")
        ->check([](const std::string& text) {
            const bool isCount = text.size() <= 18 && text.find_first_not_of("0123456789") == text.npos;
            return isCount ? std::string() : text + " is not a number of frames";
        });
}

void addRunOptions(CLI::App& app, RunOptions& options, const char* what)
{
    addPipeline(app, options.pipeline, options.sets, what);
    addFrames(app, options.frames);
    addLibraries(app, options);
    addChecks(app, options.types, options.force);
    app.add_flag("--strict", options.strict,
                 "A file that could not be read or written is exit code 5, not a warning; no model is 4");
    app.add_flag(
        "--stage", options.stage,
        "Recordings and dumps appear under their names only when the run has ended without an error");
    app.add_option("--report", options.reportFile,
                   "Writes the facts of the run as JSON into this file; -: standard output")
        ->type_name("FILE");
    app.add_option("--step-output", options.stepOutput,
                   "Where the steps print: a file, or none; else standard output")
        ->type_name("FILE");
}

Command addRun(CLI::App& app)
{
    auto options = std::make_shared<RunOptions>();
    addRunOptions(app, *options, "A .json file, - for standard input, or steps separated by \"!\"");
    return command(run, options);
}

Command addBatch(CLI::App& app)
{
    auto options = std::make_shared<BatchOptions>();
    addPipeline(
        app, options->pipeline, options->sets,
        "As for run; {}, {dir}, {stem}, {n} and columns of a list in its settings differ from job to job");
    app.add_option("--each", options->each, "Inputs: the files that match, such as 'scans/*/img0000.jpg'");
    app.add_option("--list", options->list, "Inputs: one a line of this file; a .csv has columns with names");
    app.add_option("--out", options->out, "Name for the only writer, such as 'edges/{stem}.jpg'");
    app.add_option("-j,--jobs", options->jobs, "Jobs at once; else one a processor")
        ->check(CLI::Range(1, 1000000));
    app.add_option("--split", options->split, "Divides a series of images into jobs of that many frames")
        ->check(CLI::Range(1, 2147483647));
    app.add_option("--dir", options->folder, "Folder of journal, logs and reports")->capture_default_str();
    app.add_flag("--resume", options->resume, "Goes on: what is complete and unchanged is not repeated");
    app.add_option("--retry", options->retries, "Further attempts for a job that fails")
        ->check(CLI::Range(0, 1000));
    app.add_option("--retry-delay", options->retryDelay,
                   "Seconds before the second attempt, doubled before each further one")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    addFrames(app, options->frames);
    addLibraries(app, *options);
    addChecks(app, options->types, options->force);
    app.add_flag("--strict", options->strict, "As for run");
    app.add_option("--report", options->reportFile,
                   "Writes a report of all jobs as JSON; -: standard output");
    app.add_option("--engine", options->engine, "local, or slurm: a job array on a cluster")
        ->check(CLI::IsMember({"local", "slurm"}))
        ->capture_default_str();
    app.add_option("--partition", options->partition, "Slurm: partition");
    app.add_option("--time", options->timeLimit, "Slurm: time limit of a job, such as 10 or 1:30:00");
    app.add_option("--mem", options->memory, "Slurm: memory of a job, such as 2G");
    app.add_option("--sbatch", options->sbatch, "Slurm: a further option for sbatch, such as --account=a")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    return command(batch, options);
}

Command addCheck(CLI::App& app)
{
    auto options = std::make_shared<CheckOptions>();
    addPipeline(app, options->pipeline, options->sets, "As for run");
    addLibraries(app, *options);
    addChecks(app, options->types, options->force);
    return command(check, options);
}

Command addSteps(CLI::App& app)
{
    auto options = std::make_shared<StepsOptions>();
    addLibraries(app, *options);
    app.add_option("KIND", options->kind, "One kind");
    app.add_flag("--json", options->json, "As JSON");
    app.add_flag("--markdown", options->markdown, "The reference page docs/steps.md");
    app.add_flag("--schema", options->schema, "The JSON schema of pipeline files");
    return command(steps, options);
}

Command addInspect(CLI::App& app)
{
    auto options = std::make_shared<InspectOptions>();
    app.add_option("RECORDING", options->recordings, "Recordings")->required();
    addLibraries(app, *options);
    app.add_flag("--json", options->json, "One JSON object a line and record");
    app.add_flag("--model", options->model, "What mesh or point cloud each record holds, and nothing else");
    app.add_flag("--data", options->data, "With the elements of arrays");
    app.add_option("--frames", options->frames,
                   "Writes the frames as PNG files into this folder; of several recordings into one below it "
                   "for each")
        ->type_name("DIR");
    app.add_option(
           "--recover", options->recover,
           "Writes the whole records into this file, up to where the recording is damaged, and an end "
           "record")
        ->type_name("FILE");
    app.add_flag("--skip-damage", options->skipDamage, "With --recover: goes on after a damaged record")
        ->needs("--recover");
    return command(inspect, options);
}

Command addNewStep(CLI::App& app)
{
    auto options = std::make_shared<NewStepOptions>();
    app.add_option("NAME", options->name, "Kind of the step: lower-case letters and digits")->required();
    app.add_option(
           "--plugin-project", options->project,
           "A folder for a project of its own, which finds the installed package; else plugins/NAME of the "
           "source tree")
        ->type_name("DIR");
    addLibraries(app, *options);
    return command(newStep, options);
}

Command addDevices(CLI::App& app)
{
    auto options = std::make_shared<DevicesOptions>();
    app.add_flag("--json", options->json, "As JSON");
    return command(devices, options);
}

Command addReceive(CLI::App& app)
{
    auto options = std::make_shared<ReceiveOptions>();
    app.add_option("--port", options->port, "TCP port; 0: a free one, which is printed")
        ->check(CLI::Range(0, 65535))
        ->required();
    app.add_option("--bind", options->bind, "Address to listen on; 0.0.0.0: all of this machine")
        ->type_name("ADDR")
        ->capture_default_str();
    app.add_option("--out", options->out,
                   "Recording of the first run; others get -2, -3, ... before the extension")
        ->type_name("FILE");
    app.add_flag("--once", options->once, "Ends after one run; exit code 5 when it broke off");
    app.add_flag("--force", options->force, "Overwrites the file --out when it exists");
    app.add_option("--clients", options->clients, "Connections that are served at once; others wait")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--idle-timeout", options->idleTimeout,
                   "Seconds that a record may take to arrive, plus one second a megabyte")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--max-pause", options->maxPause,
                   "Seconds until the next record has to begin; 0: no limit")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    const auto size = [&](const char* name, std::uint64_t& value, const char* what, const char* standard) {
        app.add_option(name, value, what)->transform(CLI::AsSizeValue(false))->default_str(standard);
    };
    size("--max-record", options->maxRecord, "Largest record accepted, such as 64M or 2G", "1G");
    size("--max-total", options->maxTotal, "Most bytes that are stored in all", "100G");
    app.add_option("--max-files", options->maxFiles, "Most recordings that are made")->capture_default_str();
    return command(receive, options);
}

#ifdef SCANSTEPS_VIEWER
Command addView(CLI::App& app)
{
    auto options = std::make_shared<ViewOptions>();
    addRunOptions(app, *options, "A pipeline as for run, a recording, or a model (.ply, .obj, .stl)");
    app.add_option("--port", options->port, "TCP port; 0: a free one")
        ->type_name("P")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--bind", options->bind, "Address to listen on; 0.0.0.0: all of this machine")
        ->type_name("ADDR")
        ->capture_default_str();
    app.add_flag("--open", options->open, "Opens the address in the browser");
    app.add_flag("--paused", options->paused, "The run begins when the page says so");
    return command(view, options);
}
#endif

// An answer that could not be written is an error. (What steps print during a run is not an answer.)
int answered(int code)
{
    const std::string_view trouble = standardOutputWasClosed() ? "it is closed" : flushStandardOutput();
    if (trouble.empty() || code != kEnded) return code;
    return fail(kFileFailed, fmt::format("cannot write standard output: {}", trouble));
}

[[noreturn]] void failCommand(const std::string& name, const std::map<std::string, Command>& commands)
{
#ifndef SCANSTEPS_VIEWER
    if (name == "view") throw UsageError{"this scansteps was built without the viewer"};
#endif
    std::vector<std::string> names = {"help", "version"};
    for (const auto& [known, command] : commands) names.push_back(known);
    for (const std::string& known : externalCommands()) names.push_back(known);
    throw UsageError{fmt::format("there is no command {}{}", inQuotes(name),
                                 didYouMean(name, names, " (scansteps help lists them)"))};
}

void parse(CLI::App& app, const std::vector<std::string>& arguments)
{
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) throw;  // help and version
        const auto used = app.get_subcommands();
        const CLI::App& at = used.empty() ? app : *used.front();
        std::vector<std::string> known;
        for (const CLI::Option* option : at.get_options()) {
            for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
            for (const std::string& name : option->get_snames()) known.push_back("-" + name);
        }
        const std::string hint = unexpectedArgument(at.get_name(), app.remaining(true), known);
        throw UsageError{hint.empty() ? error.what() : hint};
    }
}

// Turns "version" and "help [COMMAND]" into options.
std::vector<std::string> asOptions(std::vector<std::string> arguments)
{
    if (arguments.empty()) return arguments;
    if (arguments[0] == "version") return {"--version"};
    if (arguments[0] != "help") return arguments;
    arguments.erase(arguments.begin());
    if (arguments.size() > 1) arguments.resize(1);
    arguments.emplace_back("--help");
    return arguments;
}

struct CommandInfo
{
    const char* name;
    const char* what;
    Command (*options)(CLI::App&);
    const char* example;
};

constexpr CommandInfo kCommands[] = {
    {"run", "Runs a pipeline", addRun,
     "scansteps run \"cjread load.name=img0000.jpg ! cyuv ! ccanny ! cjwrite name=edge0000.jpg ! clast\""},
    {"batch", "Runs a pipeline over many inputs, on this machine or on a cluster", addBatch,
     "scansteps batch edges.json --each 'scans/*/img0000.jpg' --out 'edges/{dir}/edge0000.jpg'"},
    {"check", "Checks types and settings of a pipeline; nothing is run", addCheck,
     "scansteps check edges.json --set OCV.trh=120"},
    {"steps", "Lists the kinds of steps, or one with its settings", addSteps, "scansteps steps ccanny"},
    {"inspect", "Prints the records of a recording", addInspect,
     "scansteps inspect run.rec --frames pictures"},
    {"new-step", "Writes the files of a new step: a plug-in with its test", addNewStep,
     "scansteps new-step sharpen --plugin-project sharpen"},
    {"devices", "Lists the cameras with their formats and sizes", addDevices, "scansteps devices --json"},
    {"receive", "Receives runs from the sender step and records them", addReceive,
     "scansteps receive --port 5000 --bind 0.0.0.0 --out run.rec"},
#ifdef SCANSTEPS_VIEWER
    {"view", "Shows a pipeline that runs, a recording or a model in the browser", addView,
     "scansteps view \"ccap1 ! ccanny\" --open"},
#endif
};

constexpr const char* kExitCodes =
    "Exit codes: 0 the run ended; 2 the command line or the pipeline is wrong; 3 types or formats do not\n"
    "fit; 4 a step raised an error; 5 a file or a connection failed; 130 interrupted.";

// Commands that the shells' completion files, the build and the tasks of a cluster call, not users.
std::optional<int> answerShell(const CLI::App& app, std::vector<std::string> arguments)
{
    if (arguments.empty()) return {};
    const std::string name = arguments[0];
    arguments.erase(arguments.begin());
    if (name == "__task" && arguments.size() == 1) return batchTask({arguments[0]});
    if (name == "__complete") return complete(helpOfAll(app), std::move(arguments));
    if (name == "__man" && arguments.size() == 1) return manualPages(helpOfAll(app), arguments[0]);
    return {};
}

std::string externalCommandsText()
{
    const auto names = externalCommands();
    return names.empty() ? "" : fmt::format("Commands of plug-ins: {}\n\n", fmt::join(names, ", "));
}

int program(int argc, char** argv)
{
    CLI::App app{"Runs pipelines of steps over images, cameras and recordings", "scansteps"};
    app.set_version_flag("-V,--version", "scansteps " SCANSTEPS_VERSION, "Prints the version");
    app.set_help_flag("-h,--help", "Prints this help");
    app.allow_windows_style_options(false);  // "/name" is a path on every system
    app.require_subcommand(0, 1);
    app.footer(fmt::format(
        "{}\n\nscansteps help COMMAND tells the options of a command, with an example. To begin:\n  {}",
        externalCommandsText() + kExitCodes, kCommands[0].example));
    std::map<std::string, Command> commands;
    for (const auto& [name, what, options, example] : kCommands) {
        CLI::App& command = *app.add_subcommand(name, what);
        command.footer(fmt::format("Example:\n  {}", example));
        commands[name] = options(command);
    }

    try {
        readLogLevel();
        auto arguments = utf8Arguments(argc, argv);
        arguments = asOptions({arguments.begin() + 1, arguments.end()});
        if (const auto code = answerShell(app, arguments)) return answered(*code);
        if (!arguments.empty() && !arguments[0].starts_with('-') && !commands.contains(arguments[0])) {
            const auto external = externalCommand(arguments[0]);
            if (external.empty()) failCommand(arguments[0], commands);
            return runExternal(external, {arguments.begin() + 1, arguments.end()});
        }
        parse(app, arguments);
        for (const auto& [name, command] : commands)
            if (app.got_subcommand(name))
                return name == "run" || name == "view" ? command() : answered(command());
        answerLines(app.help());
        return kUsage;
    } catch (const CLI::Success& success) {
        return answered(app.exit(success));
    } catch (const CLI::ParseError& error) {
        return fail(kUsage, error.what());
    } catch (const UsageError& error) {
        return fail(kUsage, error.what());
    } catch (const FileError& error) {
        return fail(kFileFailed, error.what());
    } catch (const char* text) {
        return fail(kFileFailed, text);
    }
}

}  // namespace

int main(int argc, char** argv)
try {
    return program(argc, argv);
} catch (const std::bad_alloc&) {
    return fail(kFileFailed, "out of memory");
} catch (const std::exception& error) {
    return fail(kFileFailed, error.what());
}
