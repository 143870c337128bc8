// Prints progress, times and errors of a run, and writes its facts as JSON.
#include "report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "console.h"
#include "library/descriptors.h"
#include "library/json_values.h"
#include "output.h"
#include "standard_streams.h"

namespace scansteps::host {

namespace {

double framesPerSecond(const RunFacts& facts)
{
    return facts.seconds > 0 ? double(facts.frames) / facts.seconds : 0;
}

Json jsonOf(const std::vector<RunFacts::Message>& messages)
{
    Json list = Json::array();
    for (const auto& message : messages) {
        Json json = {{"message", message.message}};
        const auto add = [&](const char* key, const std::string& text) {
            if (!text.empty()) json[key] = text;
        };
        add("step", message.where);
        add("phase", message.phase);
        add("file", message.file.file);
        add("reason", message.file.reason);
        list.push_back(std::move(json));
    }
    return list;
}

Json jsonOf(const RunReport& facts)
{
    Json steps = Json::array();
    for (std::size_t i = 0; i < facts.steps.size(); ++i) {
        const StepFacts& step = facts.steps[i];
        Json json = {{"step", i + 1}, {"kind", step.kind}, {"class", step.className}};
        if (!step.name.empty()) json["name"] = step.name;
        if (step.seconds) {
            json["seconds"] = *step.seconds;
            json["share"] = facts.seconds > 0 ? *step.seconds / facts.seconds : 0.0;
        }
        if (step.workerSeconds > 0) json["workerSeconds"] = step.workerSeconds;
        steps.push_back(std::move(json));
    }
    Json warnings = Json::array();
    for (const std::string& warning : facts.warnedBefore) warnings.push_back({{"message", warning}});
    for (Json& warning : jsonOf(facts.warnings)) warnings.push_back(std::move(warning));
    return {{"exitCode", int(facts.exitCode)},
            {"frames", facts.frames},
            {"seconds", facts.seconds},
            {"framesPerSecond", framesPerSecond(facts)},
            {"steps", steps},
            {"errors", jsonOf(facts.errors)},
            {"warnings", warnings}};
}

}  // namespace

StatusLine::StatusLine(bool wanted) : shown_(wanted && standardErrorIsTerminal()) {}

void StatusLine::end()
{
    if (std::exchange(width_, 0) != 0) descriptor::writeAll(descriptor::kErrors, "\n");
}

bool StatusLine::isDue(bool always)
{
    const auto now = Clock::now();
    if (!shown_ || (now - last_ < std::chrono::milliseconds(100) && !always)) return false;
    last_ = now;
    return true;
}

void StatusLine::draw(std::string line)
{
    // A line as wide as the terminal would wrap.
    line.resize(std::min<std::size_t>(line.size(), std::size_t(std::max(terminalWidth(), 1)) - 1));
    // Flushes what the steps printed to the same terminal before drawing the line.
    std::fflush(stdout);
    descriptor::writeAll(descriptor::kErrors,
                         fmt::format("\r{:<{}}", line, std::exchange(width_, line.size())));
}

void Progress::update(std::int64_t done)
{
    if (!line_.isDue(done == frames_)) return;
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const double rate = seconds > 0 ? double(done) / seconds : 0;
    std::string line =
        frames_ > 0 ? fmt::format("{} of {} frames", done, frames_) : fmt::format("{} frames", done);
    line += fmt::format(", {:.1f} frames/s", rate);
    if (frames_ > 0 && rate > 0) line += fmt::format(", {:.0f} s left", double(frames_ - done) / rate);
    line_.draw(std::move(line));
}

void printTimeTable(const RunFacts& facts)
{
    say("{} frames in {:.3f} s ({:.1f} frames/s)", facts.frames, facts.seconds, framesPerSecond(facts));
    sayBare("{:>4}  {:<24}{:>12}{:>14}{:>9}", "step", "kind", "seconds", "ms a frame", "share");
    const auto time = [&](double seconds) {
        return fmt::format("{:>12.4f}{:>14.3f}{:>8.1f}%", seconds,
                           facts.frames > 0 ? seconds * 1e3 / double(facts.frames) : 0.0,
                           facts.seconds > 0 ? seconds / facts.seconds * 100 : 0.0);
    };
    double counted = 0;
    for (std::size_t i = 0; i < facts.steps.size(); ++i) {
        const StepFacts& step = facts.steps[i];
        const std::string label = step.name.empty() ? step.kind : step.kind + " \"" + step.name + "\"";
        if (!step.seconds) {
            sayBare("{:>4}  {:<24}{:>12}{:>14}{:>9}", i + 1, label, "-", "-", "-");
            continue;
        }
        counted += *step.seconds;
        sayBare("{:>4}  {:<24}{}", i + 1, label, time(*step.seconds));
        if (step.workerSeconds > 0)
            sayBare("{:>4}  {:<24}{}", "", "  meanwhile, its threads", time(step.workerSeconds));
    }
    const double rest = facts.seconds > counted ? facts.seconds - counted : 0;
    sayBare("{:>4}  {:<24}{:>12.4f}{:>14}{:>8.1f}%", "", "initialise, flush, host", rest, "",
            facts.seconds > 0 ? rest / facts.seconds * 100 : 0.0);
}

void judgeTroubles(RunReport& facts, const Pipeline& pipeline, bool strict)
{
    for (const TroubleFacts& trouble : facts.troubles) {
        const std::string where = stepLabel(pipeline, trouble.step);
        if (!strict) {
            facts.warnings.push_back({where, "", troubleText(trouble), trouble.first});
            continue;
        }
        facts.errors.push_back({where, "end of the run", troubleText(trouble), trouble.first});
        if (facts.exitCode == kEnded)
            facts.exitCode = trouble.trouble == Trouble::NoModel ? kStepFailed : kFileFailed;
    }
    const bool explained =
        std::any_of(facts.troubles.begin(), facts.troubles.end(),
                    [](const TroubleFacts& trouble) { return trouble.trouble == Trouble::SourceStopped; });
    if (facts.exitCode == kEnded && facts.frames == 0 && !explained)
        facts.warnings.push_back({"", "", "the source had no frame to deliver"});
}

void printErrors(const RunReport& facts)
{
    const auto text = [](const RunFacts::Message& message) {
        return fmt::format("{}{}{}{}{}", message.where, message.phase.empty() ? "" : ", ", message.phase,
                           message.where.empty() ? "" : ": ", message.message);
    };
    for (const auto& warning : facts.warnings) warn("{}", text(warning));
    for (const auto& error : facts.errors) complain("{}", text(error));
    if (facts.outOfMemory) complain("out of memory");
    if (facts.exitCode == kInterrupted) say("interrupted after {} frames", facts.frames);
}

std::string reportText(const RunReport& facts)
{
    return jsonOf(facts).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace scansteps::host
