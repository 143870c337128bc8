// Drives the trial chain. What its steps print is dropped: it is no output of the run.
#include "tuner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace scansteps::viewer {

namespace {

// Standard output goes nowhere while it exists.
class Silence
{
  public:
    Silence() : before_(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (before_ >= 0 && nowhere >= 0) ::dup2(nowhere, STDOUT_FILENO);
        if (nowhere >= 0) ::close(nowhere);
    }
    ~Silence()
    {
        std::fflush(stdout);
        if (before_ < 0) return;
        ::dup2(before_, STDOUT_FILENO);
        ::close(before_);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

  private:
    int before_;
};

bool describesFrames(std::string_view path)
{
    return path == "dataX" || path == "dataY" || path == "dataFormat" || path == "VideoFormat";
}

}  // namespace

bool isTunable(const StepInfo& step, const SettingInfo& setting)
{
    return isTried(step) && setting.role == SettingRole::None && !setting.presence &&
           !describesFrames(setting.path) && (setting.kind == Kind::Int || setting.kind == Kind::Float);
}

bool isTried(const StepInfo& step)
{
    const auto reachesOut = [](const SettingInfo& setting) { return setting.role != SettingRole::None; };
    return !step.source && std::none_of(step.settings.begin(), step.settings.end(), reachesOut);
}

Tuner::Tuner(const host::Pipeline& pipeline, const host::StepLibrary& library, host::Hooks hooks,
             Stage& stage)
    : library_(library),
      hooks_(std::move(hooks)),
      stage_(stage),
      held_(pipeline.steps[0].info->source ? 1 : 0)
{
    for (std::size_t i = held_; i < pipeline.steps.size(); ++i)
        if (isTried(*pipeline.steps[i].info)) tried_.push_back(i);
    descriptions_.resize(tried_.size() + 1);
    hooks_.onWarning = {};
    hooks_.observe = [this](std::size_t position, const varitype& record) { observe(position, record); };
}

void Tuner::makeChain(const host::Pipeline& tuned)
{
    host::Pipeline trial;
    for (const std::size_t index : tried_) trial.steps.push_back(tuned.steps[index]);
    if (!chain_) chain_ = std::make_unique<host::Chain>(std::move(trial), library_, hooks_);
}

// A position of the trial chain stands for all those of the pipeline between which no step is tried.
void Tuner::observe(std::size_t position, const varitype& record)
{
    const varitype* type = record.as<Struct>().find("eventType");
    const int event = type != nullptr && type->kind() == Kind::Int ? type->as<std::int32_t>() : 0;
    if (event == event::kInit) descriptions_[position] = describeFrames(record.as<Struct>());
    if (event != event::kProcess || !isLast_) return;
    const varitype* handle = record.as<Struct>().find("handle");
    const bool hasFrame = handle != nullptr && handle->kind() == Kind::Int;
    const Array* frame = hasFrame ? &pixelsOf(handle->as<std::int32_t>()) : nullptr;
    const std::size_t first = position == 0 ? held_ : tried_[position - 1] + 1;
    const std::size_t last = position < tried_.size() ? tried_[position] : stage_.positions() - 1;
    for (std::size_t at = first; at <= last; ++at) {
        auto shot = takeShot(record, frame, descriptions_[position], *pool_);
        shot->frame = number_;
        stage_.publish(at, std::move(shot), true);
    }
}

void Tuner::send(const Shot& shot)
{
    number_ = shot.frame;
    varitype record = shot.record.clone();
    const Array* pixels = shot.copy ? shot.copy.get() : nullptr;
    if (pixels != nullptr) {
        TextureSet& input = chain_->input();
        if (input.count() == 0)
            throw std::runtime_error("the frame is of no format that a chain could be given");
        input.pixels() = *pixels;
    }
    chain_->process(record);
}

Tuner::Result Tuner::run(const host::Pipeline& tuned, const varitype& init,
                         const std::vector<ShotPtr>& frames)
{
    Result result;
    const auto begin = std::chrono::steady_clock::now();
    const Silence silence;
    try {
        makeChain(tuned);
        host::Pipeline& trial = chain_->pipeline();
        trial.settings = init.as<Struct>();
        trial.settings.remove("eventType");
        for (std::size_t i = 0; i < tried_.size(); ++i)
            trial.steps[i].settings = tuned.steps[tried_[i]].settings;
        isLast_ = false;
        chain_->initialise();
        for (std::size_t i = 0; i < frames.size(); ++i) {
            isLast_ = i + 1 == frames.size();
            send(*frames[i]);
        }
    } catch (const host::StepError& error) {
        result.error = error.what();
        result.step = tried_[std::min(error.step, tried_.size() - 1)];
    } catch (const std::exception& error) {
        result.error = error.what();
        result.step = held_;
    }
    result.milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
    return result;
}

}  // namespace scansteps::viewer
