// The trial chain: runs a held frame through the steps of a pipeline with other settings, without its source
// and without steps that write files or open connections.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "scansteps/host.h"
#include "stage.h"
#include "taps.h"

namespace scansteps::viewer {

/// Whether the page may change the setting: names of files and hosts, and what describes the frames, may not.
bool isTunable(const StepInfo& step, const SettingInfo& setting);
/// Whether the step takes part in trials.
bool isTried(const StepInfo& step);

class Tuner
{
  public:
    /// Used by the thread of the pipeline's own chain, between its events. Must outlive that chain, whose
    /// threads may look at the services that are installed.
    Tuner(const host::Pipeline& pipeline, const host::StepLibrary& library, host::Hooks hooks, Stage& stage);

    /// Where held frames are taken: what the first step after the source gets.
    std::size_t heldPosition() const { return held_; }
    bool canTune() const { return !tried_.empty(); }

    struct Result
    {
        double milliseconds = 0;
        std::string error;  ///< empty: none
        std::size_t step = 0;
    };
    /// Publishes the shots of the last of the frames as tuned ones. The init record is that of
    /// heldPosition().
    Result run(const host::Pipeline& tuned, const varitype& init, const std::vector<ShotPtr>& frames);

  private:
    void makeChain(const host::Pipeline& tuned);
    void send(const Shot& frame);
    void observe(std::size_t position, const varitype& record);

    const host::StepLibrary& library_;
    host::Hooks hooks_;
    Stage& stage_;
    std::size_t held_ = 0;
    std::vector<std::size_t> tried_;  // indices in the pipeline of the chain's steps
    std::unique_ptr<host::Chain> chain_;
    std::vector<FrameDescription> descriptions_;
    std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>();
    bool isLast_ = false;
    std::int64_t number_ = 0;
};

}  // namespace scansteps::viewer
