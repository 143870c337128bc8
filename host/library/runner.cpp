// Runs a chain to its end and keeps the facts that a report and an error line are made of.
#include <fmt/format.h>

#include <chrono>
#include <exception>

#include "scansteps/host.h"

namespace scansteps::host {

namespace {

std::string phaseText(const StepError& error)
{
    switch (error.phase) {
        case Phase::Initialise:
            return "initialise";
        case Phase::Process:
            return fmt::format("frame {}", error.frame);
        default:
            return "flush";
    }
}

class Run
{
  public:
    Run(Chain& chain, const RunHooks& hooks) : chain_(chain), hooks_(hooks) {}
    RunFacts run();

  private:
    template <class Work>
    bool noted(Work work) noexcept;
    void note(const StepError& error) noexcept;
    void noteOutOfMemory() noexcept;
    void processFrames();

    Chain& chain_;
    const RunHooks& hooks_;
    RunFacts facts_;
};

void Run::noteOutOfMemory() noexcept
{
    facts_.outOfMemory = true;
    if (facts_.exitCode == kEnded) facts_.exitCode = kStepFailed;
}

// The first error keeps the exit code.
void Run::note(const StepError& error) noexcept
try {
    const bool interrupted = facts_.exitCode == kEnded && error.code == kStepFailed && chain_.interrupted();
    if (facts_.exitCode == kEnded) facts_.exitCode = interrupted ? kInterrupted : error.code;
    if (interrupted && error.gaveUp) return;
    facts_.errors.push_back(
        {stepLabel(chain_.pipeline(), error.step), phaseText(error), error.what(), error.file});
} catch (...) {
    noteOutOfMemory();
}

template <class Work>
bool Run::noted(Work work) noexcept
{
    try {
        work();
        return true;
    } catch (const StepError& error) {
        note(error);
    } catch (...) {
        noteOutOfMemory();
    }
    return false;
}

void Run::processFrames()
{
    const std::int64_t frames = chain_.pipeline().frames;
    for (std::int64_t frame = 1; frames == 0 || frame <= frames; ++frame) {
        if (chain_.interrupted()) {
            facts_.exitCode = kInterrupted;
            return;
        }
        if (hooks_.stop && hooks_.stop()) return;
        if (!chain_.process()) return;
        facts_.frames = frame;
        if (hooks_.onFrame) hooks_.onFrame(frame);
    }
}

RunFacts Run::run()
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    noted([&] {
        chain_.initialise();
        processFrames();
    });
    noted([&] { chain_.flush(); });
    if (facts_.exitCode == kEnded && chain_.interrupted()) facts_.exitCode = kInterrupted;
    facts_.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    facts_.steps = chain_.steps();
    facts_.troubles = chain_.troubles();
    return std::move(facts_);
}

}  // namespace

RunFacts runPipeline(Chain& chain, const RunHooks& hooks)
{
    return Run(chain, hooks).run();
}

}  // namespace scansteps::host
