// scansteps: runs pipelines of the step library from the command line.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <map>
#include <memory>

#include "commands.h"
#include "outcome.h"
#include "pipeline.h"
#include "system.h"

using namespace scansteps::host;

namespace {

int fail(int code, const std::string& message)
{
    std::fflush(stdout);
    fmt::print(stderr, "scansteps: error: {}\n", message);
    return code;
}

using Command = std::function<int()>;

// Options of a subcommand; they must outlive the parser.
template <class Options>
Command command(int (*work)(const Options&), std::shared_ptr<Options> options)
{
    return [work, options] { return work(*options); };
}

void addPipeline(CLI::App& app, std::string& pipeline, std::vector<std::string>& sets, const char* what)
{
    app.add_option("PIPELINE", pipeline, what)->required();
    app.add_option("--set", sets, "PATH=VALUE: a setting of the initialise record")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
}

Command addRun(CLI::App& app)
{
    auto options = std::make_shared<RunOptions>();
    addPipeline(app, options->pipeline, options->sets,
                "A .json file, - for standard input, or steps separated by \"!\"");
    app.add_option("--frames", options->frames, "Stops after that many frames; 0: no limit")
        ->check([](const std::string& text) {
            const bool isCount = text.size() <= 18 && text.find_first_not_of("0123456789") == text.npos;
            return isCount ? std::string() : text + " is not a number of frames";
        });
    app.add_option("--library", options->library, "The step library to load");
    app.add_option("--types", options->types, "When types of neighbours do not fit: error, warn or off")
        ->check(CLI::IsMember({"error", "warn", "off"}));
    app.add_flag("--quiet", options->quiet, "No progress and no table of times");
    app.add_flag("--strict", options->strict,
                 "A file that could not be read or written is exit code 5, not a warning; no model is 4");
    app.add_option("--report", options->reportFile, "Writes the facts of the run as JSON");
    return command(run, options);
}

Command addCheck(CLI::App& app)
{
    auto options = std::make_shared<CheckOptions>();
    addPipeline(app, options->pipeline, options->sets, "As for run");
    return command(check, options);
}

Command addSteps(CLI::App& app)
{
    auto options = std::make_shared<StepsOptions>();
    app.add_option("KIND", options->kind, "One kind");
    app.add_flag("--json", options->json, "As JSON");
    app.add_flag("--markdown", options->markdown, "The reference page docs/steps.md");
    app.add_flag("--schema", options->schema, "The JSON schema of pipeline files");
    return command(steps, options);
}

Command addInspect(CLI::App& app)
{
    auto options = std::make_shared<InspectOptions>();
    app.add_option("RECORDING", options->recording, "A recording")->required();
    app.add_flag("--json", options->json, "One JSON object a line and record");
    app.add_flag("--model", options->model, "What mesh or point cloud each record holds, and nothing else");
    app.add_flag("--data", options->data, "With the elements of arrays");
    app.add_option("--frames", options->frames,
                   "Writes the frames as picture files (.pgm, .ppm) into this folder");
    app.add_option("--recover", options->recover,
                   "Writes the whole records into this file, up to where the recording is damaged");
    return command(inspect, options);
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
    app.add_option("--port", options->port, "TCP port; 0: a free one, which is printed")->required();
    app.add_option("--bind", options->bind, "Address to listen on; 0.0.0.0: all of this machine")
        ->capture_default_str();
    app.add_option("--out", options->out,
                   "Recording of the first run; later ones get -2, -3, ... before the extension");
    app.add_flag("--once", options->once, "Ends after one run; exit code 5 when it broke off");
    app.add_option("--max-record", options->maxRecord, "Largest record accepted, such as 64M or 2G")
        ->transform(CLI::AsSizeValue(false))
        ->default_str("1G");
    app.add_option("--idle-timeout", options->idleTimeout,
                   "Seconds of silence after which a client is dropped")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    return command(receive, options);
}

// An answer that did not reach its file is no answer. (What the steps of a run print beside their work is
// none.)
int answered(int code)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return code;
    return code == kEnded ? fail(kFileFailed, "cannot write standard output") : code;
}

[[noreturn]] void failCommand(const std::string& name, const std::map<std::string, Command>& commands)
{
    std::vector<std::string> names;
    for (const auto& [known, command] : commands) names.push_back(known);
    const std::string near = nearest(name, names);
    throw UsageError{near.empty()
                         ? fmt::format("there is no command \"{}\" (scansteps --help lists them)", name)
                         : fmt::format("there is no command \"{}\"; did you mean \"{}\"?", name, near)};
}

}  // namespace

int main(int argc, char** argv)
{
    useBinaryStandardStreams();
    CLI::App app{"Runs pipelines of steps over images, cameras and recordings", "scansteps"};
    app.set_version_flag("--version", "scansteps " SCANSTEPS_VERSION);
    app.allow_windows_style_options(false);  // "/name" is a path on every system
    app.require_subcommand(0, 1);
    app.footer(
        "Exit codes: 0 the run ended; 2 the command line or the pipeline is wrong; 3 types or formats do "
        "not\n"
        "fit; 4 a step raised an error; 5 a file or a connection failed; 130 interrupted.\n\n"
        "scansteps run \"cjread load.name=img0000.jpg ! cyuv ! ccanny ! cjwrite name=edge0000.jpg ! clast\"");
    std::map<std::string, Command> commands;
    const auto add = [&](const char* name, const char* what, Command (*options)(CLI::App&)) {
        commands[name] = options(*app.add_subcommand(name, what));
    };
    add("run", "Runs a pipeline", addRun);
    add("check", "Checks types and settings of a pipeline; nothing is run", addCheck);
    add("steps", "Lists the kinds of steps, or one with its settings", addSteps);
    add("inspect", "Prints the records of a recording", addInspect);
    add("devices", "Lists the cameras with their formats and sizes", addDevices);
    add("receive", "Receives runs from the sender step and records them", addReceive);

    try {
        auto arguments = utf8Arguments(argc, argv);
        if (arguments.size() > 1 && !arguments[1].starts_with('-') && !commands.contains(arguments[1]))
            failCommand(arguments[1], commands);
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend() - 1);
        app.parse(reversed);
        for (const auto& [name, command] : commands)
            if (app.got_subcommand(name)) return name == "run" ? command() : answered(command());
        fmt::print("{}", app.help());
        return kUsage;
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        return fail(kUsage, error.what());
    } catch (const UsageError& error) {
        return fail(kUsage, error.message);
    } catch (const FileError& error) {
        return fail(kFileFailed, error.message);
    } catch (const char* text) {
        return fail(kFileFailed, text);
    } catch (const std::exception& error) {
        return fail(kFileFailed, error.what());
    }
}
