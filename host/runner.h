// Drives a chain: initialise, one event a frame, flush, with the settings of each step merged in just before
// it, and keeps the facts that the report and the error line are made of.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "exit_codes.h"
#include "notices.h"
#include "pipeline.h"
#include "replay.h"
#include "scansteps/texture.h"
#include "step_library.h"

namespace scansteps::host {

struct StepFacts
{
    std::string kind, className, name;
    std::optional<double> seconds;  ///< none for a step that keeps no time
};

struct RunFacts
{
    int exitCode = kEnded;
    std::int64_t frames = 0;  ///< process events that were dispatched and did not end the run
    double seconds = 0;       ///< of the whole run, initialise and flush included
    std::vector<StepFacts> steps;
    struct Error
    {
        std::string where;  ///< "step 2 (ccanny)"
        std::string phase;  ///< "initialise", "frame 7", "flush"
        std::string message;
        FileReason file = {};  ///< of a file that failed
    };
    std::vector<Error> errors;
    bool outOfMemory = false;               ///< an error for which there was no memory, not even in `errors`
    bool outputDeserted = false;            ///< the run was ended as nobody reads standard output any more
    std::vector<Error> warnings;            ///< at the end of the run; they have no phase
    std::vector<std::string> warnedBefore;  ///< printed before or during the run
    std::vector<TroubleFacts> troubles;     ///< that steps survived
};

class Runner
{
  public:
    Runner(const Pipeline& pipeline, const StepLibrary& library);
    ~Runner();
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    /// Called after every frame with the number of frames done.
    std::function<void(std::int64_t)> onFrame;
    /// Called during the run with what is worth a warning at once.
    std::function<void(const std::string&)> onWarning;

    RunFacts run();

  private:
    class Probe;
    class End;

    void link();
    void makeHostBuffer(const Struct& initRecord);
    template <class Send>
    bool guarded(const std::string& phase, Send send);
    void noteMismatch(std::size_t step);
    void addError(const std::string& phase, const char* text) noexcept;
    void noteOutOfMemory() noexcept;
    bool initialise();
    void processFrames();

    const Pipeline& pipeline_;
    HandleTable table_;
    std::vector<std::unique_ptr<cChain>> steps_;
    std::vector<std::unique_ptr<Probe>> probes_;
    std::unique_ptr<End> end_;
    TextureSet hostBuffer_;
    std::atomic<std::size_t> current_ = 0;  // the step that works now
    std::vector<std::int64_t> processed_;   // process events that each step was given
    NoticeBoard notices_;
    ReplayRules replay_;
    bool mismatch_ = false;
    std::size_t mismatchAt_ = 0;
    RunFacts facts_;
};

}  // namespace scansteps::host
