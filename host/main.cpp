// scansteps: runs pipelines of the step library from the command line.
#include <fmt/format.h>

#include <cstdio>
#include <map>

#include "commands.h"
#include "json_values.h"
#include "runner.h"
#include "step_library.h"
#include "system.h"

using namespace scansteps::host;

namespace {

int fail(int code, const std::string& message)
{
    std::fflush(stdout);
    fmt::print(stderr, "scansteps: error: {}\n", message);
    return code;
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
    const std::map<std::string, Command> commands = {
        {"run", addRun(app)},         {"check", addCheck(app)},     {"steps", addSteps(app)},
        {"inspect", addInspect(app)}, {"devices", addDevices(app)}, {"receive", addReceive(app)}};

    try {
        auto arguments = utf8Arguments(argc, argv);
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend() - 1);
        app.parse(reversed);
        for (const auto& [name, command] : commands)
            if (app.got_subcommand(name)) return command();
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
