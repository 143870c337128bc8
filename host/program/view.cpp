// scansteps view: a pipeline, a recording or a model in the browser.
#include "commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "interrupts.h"
#include "library/platform.h"
#include "output.h"
#include "pipeline_run.h"
#include "scansteps/host.h"
#include "viewer/model_file.h"
#include "viewer/model_view.h"
#include "viewer/pipeline_view.h"
#include "viewer/recording_view.h"
#include "viewer/server.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

extern char** environ;

namespace scansteps::host {

namespace {

// Opens the address with the user's browser. What that prints is not wanted.
void openBrowser(const std::string& address)
{
    std::string program = "xdg-open", argument = address;
    char* const arguments[] = {program.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    if (posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments, environ) != 0)
        warn("no browser could be opened (xdg-open is missing)");
    posix_spawn_file_actions_destroy(&actions);
}

void announce(const viewer::Server& server, const ViewOptions& options)
{
    say("view at {}", server.address());
    if (options.open) openBrowser(server.address());
}

bool endsLike(std::string text, std::string_view ending)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text.ends_with(ending);
}

bool isModelName(const std::string& name)
{
    return endsLike(name, ".ply") || endsLike(name, ".obj") || endsLike(name, ".stl");
}

// Whether the text names a file rather than a pipeline in one line.
bool isFileName(const std::string& text)
{
    std::error_code error;
    if (std::filesystem::is_regular_file(pathFromUtf8(text), error)) return true;
    const bool isOneWord = text.find_first_of(" \t\n!=") == text.npos;
    return isModelName(text) ||
           (isOneWord && findStep(text) == nullptr && text.find_first_of("./") != text.npos);
}

template <class View>
int show(View& view, viewer::Session& session, const ViewOptions& options)
{
    const viewer::Server server(session, options.bind, options.port);
    announce(server, options);
    view.stay(interrupted);
    return kInterrupted;
}

int viewFile(const ViewOptions& options)
{
    catchInterrupts();
    viewer::Session session(2);
    if (isModelName(options.pipeline)) {
        viewer::ModelView view(session, options.pipeline);
        return show(view, session, options);
    }
    viewer::RecordingView view(session, options.pipeline);
    return show(view, session, options);
}

int viewPipeline(const ViewOptions& options)
{
    PipelineRun run(options);
    if (run.isRefused()) return run.refuse();
    viewer::Session session(run.pipeline().steps.size() + 1);
    viewer::PipelineView view(session, run.pipeline(), run.library(), run.hooks(), run.findings(),
                              options.paused);
    run.watch(view.chain());
    const viewer::Server server(session, options.bind, options.port);
    announce(server, options);
    const RunReport& facts = run.end(view.run([&] { return run.stops(); }));
    if (run.isDeserted()) return facts.exitCode;
    if (facts.exitCode != kInterrupted) view.stay(facts);
    return kInterrupted;
}

}  // namespace

int view(const ViewOptions& options)
{
    if (!isFileName(options.pipeline) || endsLike(options.pipeline, ".json")) return viewPipeline(options);
    std::error_code error;
    if (!std::filesystem::is_regular_file(pathFromUtf8(options.pipeline), error))
        throw UsageError{fmt::format("cannot read {}: {}", options.pipeline,
                                     error ? error.message() : "it is no regular file")};
    return viewFile(options);
}

}  // namespace scansteps::host
