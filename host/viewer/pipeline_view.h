// A pipeline that runs in front of viewers: pausing, single steps, trials of other settings, and the status.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "scansteps/host.h"
#include "session.h"
#include "taps.h"
#include "tuner.h"

namespace scansteps::viewer {

class PipelineView final : public Subject
{
  public:
    /// `findings` of the checks appear on the cards. The hooks are those of the run without its taps.
    PipelineView(Session& session, host::Pipeline pipeline, const host::StepLibrary& library,
                 host::Hooks hooks, const std::vector<host::Finding>& findings, bool isPaused);
    ~PipelineView() override;

    const host::Chain& chain() const { return *chain_; }
    /// Runs the chain on the calling thread until `stop` says so, which is asked between frames.
    host::RunFacts run(std::function<bool()> stop);
    /// After the run: serves trials until `interrupted` says so.
    void stay(const host::RunFacts& facts);

    Json hello() const override;
    void set(const SetSetting& setting) override;
    Json act(const Action& action) override;
    void watched(bool isWatched) override;

  private:
    bool beforeFrame();
    void afterFrame();
    /// Carries out what was ordered. True when the next frame is due.
    bool obey();
    void tune();
    void apply();
    void note(const char* level, const std::string& text, std::optional<std::size_t> step = {});
    void publishStatus(const char* state);
    Json stepStatus();
    Json tuningStatus();
    bool interrupted() const { return hooks_.interrupted && hooks_.interrupted(); }

    Session& session_;
    const host::StepLibrary& library_;
    host::Hooks hooks_;
    std::function<bool()> stop_;
    Taps taps_;
    Tuner tuner_;
    std::unique_ptr<host::Chain> chain_;  // ends before the trial chain
    std::vector<ShotPtr> held_;
    Tuner::Result tuned_;
    std::string state_ = "running";
    bool hasEnded_ = false;

    // Between this thread and the server's.
    mutable std::mutex mutex_;
    std::condition_variable ordered_;
    host::Pipeline original_, tunedPipeline_;
    std::set<std::pair<std::size_t, std::string>> changed_;
    bool paused_ = false, wantsTune_ = false, wantsApply_ = false, wantsHold_ = false, wantsStatus_ = true;
    int steps_ = 0;
    Json messages_ = Json::array();
    int exitCode_ = -1;

    // For the times of steps since the last status.
    std::chrono::steady_clock::time_point statusAt_;
    std::int64_t statusFrames_ = 0;
    std::vector<double> statusSeconds_;
};

}  // namespace scansteps::viewer
