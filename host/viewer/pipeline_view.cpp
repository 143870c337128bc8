// Orders come from the server's thread and are carried out by the thread of the chain between two frames.
#include "pipeline_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "overlays.h"
#include "step_json.h"

namespace scansteps::viewer {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kStatusPause = std::chrono::milliseconds(100);
constexpr std::size_t kMaxMessages = 200;

}  // namespace

PipelineView::PipelineView(Session& session, host::Pipeline pipeline, const host::StepLibrary& library,
                           host::Hooks hooks, const std::vector<host::Finding>& findings, bool isPaused)
    : session_(session),
      library_(library),
      hooks_(std::move(hooks)),
      taps_(session.stage()),
      tuner_(pipeline, library, hooks_, session.stage()),
      original_(std::move(pipeline)),
      tunedPipeline_(original_),
      paused_(isPaused)
{
    for (const host::Finding& finding : findings)
        note(finding.code == host::kEnded ? "warning" : "error", finding.text, finding.step);
    host::Hooks all = hooks_;
    all.observe = [this](std::size_t position, const varitype& record) { taps_.observe(position, record); };
    all.onWarning = [this](const std::string& text) {
        note("warning", text);
        if (hooks_.onWarning) hooks_.onWarning(text);
    };
    chain_ = std::make_unique<host::Chain>(original_, library_, std::move(all));
    session_.setSubject(*this);
    publishStatus("starting");
}

PipelineView::~PipelineView() = default;

void PipelineView::note(const char* level, const std::string& text, std::optional<std::size_t> step)
{
    const std::lock_guard lock(mutex_);
    if (messages_.size() >= kMaxMessages) return;
    Json message = {{"level", level}, {"text", text}};
    if (step) message["step"] = *step;
    messages_.push_back(std::move(message));
    wantsStatus_ = true;
}

host::RunFacts PipelineView::run(std::function<bool()> stop)
{
    stop_ = std::move(stop);
    return host::runPipeline(*chain_, {.onFrame = [this](std::int64_t) { afterFrame(); },
                                       .stop = [this] { return beforeFrame(); }});
}

bool PipelineView::beforeFrame()
{
    while (!obey()) {
        if (interrupted() || stop_()) return true;
        std::unique_lock lock(mutex_);
        ordered_.wait_for(lock, kStatusPause, [&] {
            return wantsTune_ || wantsApply_ || wantsHold_ || wantsStatus_ || steps_ > 0 || !paused_;
        });
    }
    return stop_();
}

bool PipelineView::obey()
{
    bool tunes = false, applies = false, holds = false, goesOn = false, tells = false;
    const char* state = nullptr;
    {
        const std::lock_guard lock(mutex_);
        tunes = std::exchange(wantsTune_, false);
        applies = std::exchange(wantsApply_, false);
        holds = std::exchange(wantsHold_, false);
        tells = std::exchange(wantsStatus_, false);
        goesOn = !paused_ || steps_ > 0;
        if (paused_ && steps_ > 0) --steps_;
        if (hasEnded_) goesOn = false;
        state = hasEnded_ ? "ended" : paused_ ? "paused" : "running";
    }
    if (!goesOn && !hasEnded_) taps_.catchUp();
    if (holds) {
        held_.clear();
        tuned_ = {};
    }
    if (applies && !hasEnded_) apply();
    if (tunes) tune();
    if (tunes || applies || tells || state_ != state) publishStatus(state);
    state_ = state;
    return goesOn;
}

void PipelineView::afterFrame()
{
    taps_.frameDone();
    if (!session_.isWatched()) return;
    bool isDue = Clock::now() - statusAt_ >= kStatusPause;
    {
        const std::lock_guard lock(mutex_);
        isDue = isDue || paused_;
    }
    if (isDue) publishStatus(state_.c_str());
}

// The frame that trials work on is kept until the next frame is asked for. Steps that compare frames get the
// one before as well, as far as it is known.
void PipelineView::tune()
{
    host::Pipeline trial;
    {
        const std::lock_guard lock(mutex_);
        trial = tunedPipeline_;
    }
    if (held_.empty()) {
        const std::size_t position = tuner_.heldPosition();
        const ShotPtr before = session_.stage().latest(position, false);
        taps_.catchUp();
        const ShotPtr now = session_.stage().latest(position, false);
        if (!now) return note("warning", "there is no frame to try settings on so far");
        const bool allAlone = std::all_of(trial.steps.begin(), trial.steps.end(), [](const auto& step) {
            return step.info->source || step.info->frames.isStateless;
        });
        if (!allAlone) held_.push_back(before ? before : now);
        held_.push_back(now);
    }
    tuned_ = tuner_.run(trial, taps_.init(tuner_.heldPosition()), held_);
}

// Only the steps whose settings differ are initialised again. If that fails, the old settings are back.
void PipelineView::apply()
{
    std::vector<Struct> before, after;
    {
        const std::lock_guard lock(mutex_);
        for (const host::PipelineStep& step : original_.steps) before.push_back(step.settings);
        for (const host::PipelineStep& step : tunedPipeline_.steps) after.push_back(step.settings);
    }
    const auto use = [&](const std::vector<Struct>& settings) {
        for (std::size_t i = 0; i < settings.size(); ++i) chain_->pipeline().steps[i].settings = settings[i];
        chain_->update();
    };
    try {
        use(after);
    } catch (const host::StepError& error) {
        note("error", fmt::format("the settings were not applied: {}", error.what()), error.step);
        use(before);
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < after.size(); ++i) original_.steps[i].settings = after[i];
        changed_.clear();
    }
    held_.clear();
    session_.stage().clearTuned();
}

void PipelineView::stay(const host::RunFacts& facts)
{
    hasEnded_ = true;
    taps_.catchUp();  // with what the flush has let go
    for (const host::RunFacts::Message& error : facts.errors) {
        const std::string where = error.phase.empty() ? "" : error.phase + ": ";
        std::optional<std::size_t> step;
        for (std::size_t i = 0; i < original_.steps.size(); ++i)
            if (host::stepLabel(original_, i) == error.where) step = i;
        note("error", where + error.message, step);
    }
    for (const host::TroubleFacts& trouble : facts.troubles)
        note("warning", host::troubleText(trouble), trouble.step);
    {
        const std::lock_guard lock(mutex_);
        exitCode_ = facts.exitCode;
        wantsStatus_ = true;
    }
    while (!interrupted()) {
        obey();
        std::unique_lock lock(mutex_);
        ordered_.wait_for(lock, kStatusPause, [&] { return wantsTune_ || wantsHold_ || wantsStatus_; });
    }
    publishStatus("closed");
}

Json PipelineView::stepStatus()
{
    const std::vector<host::StepFacts> facts = chain_->steps();
    const std::int64_t frames = taps_.frames() - statusFrames_;
    Json steps = Json::array();
    statusSeconds_.resize(facts.size());
    for (std::size_t i = 0; i < facts.size(); ++i) {
        Json step = Json::object();
        const double seconds = facts[i].seconds.value_or(0);
        if (facts[i].seconds && taps_.frames() > 0) step["mean"] = 1000 * seconds / double(taps_.frames());
        if (facts[i].seconds && frames > 0)
            step["ms"] = 1000 * std::max(0.0, seconds - statusSeconds_[i]) / double(frames);
        statusSeconds_[i] = seconds;
        step["frame"] = taps_.layout(i + 1).text();
        const Struct& record = taps_.record(i + 1).as<Struct>();
        if (Json counts = countOverlays(record); !counts.empty()) step["counts"] = std::move(counts);
        if (record.has("tria") || record.has("pns")) step["model"] = true;
        steps.push_back(std::move(step));
    }
    return steps;
}

Json PipelineView::tuningStatus()
{
    Json tuning = {{"changed", Json::array()}, {"ms", tuned_.milliseconds}};
    for (const auto& [step, path] : changed_) {
        const SettingInfo* setting = findSetting(*original_.steps[step].info, path);
        tuning["changed"].push_back({{"step", step},
                                     {"path", path},
                                     {"value", settingValue(tunedPipeline_, step, *setting)},
                                     {"before", settingValue(original_, step, *setting)}});
    }
    if (!tuned_.error.empty()) tuning["error"] = {{"text", tuned_.error}, {"step", tuned_.step}};
    return tuning;
}

void PipelineView::publishStatus(const char* state)
{
    Json status = {{"what", "status"}, {"state", state}, {"frame", taps_.frames()}};
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - statusAt_).count();
    const std::int64_t frames = taps_.frames() - statusFrames_;
    if (frames > 0 && seconds < 10) status["rate"] = double(frames) / seconds;
    status["steps"] = stepStatus();
    {
        const std::lock_guard lock(mutex_);
        status["frames"] = original_.frames;
        status["tuning"] = tuningStatus();
        status["messages"] = messages_;
        if (exitCode_ >= 0) status["exit"] = exitCode_;
    }
    statusAt_ = now;
    statusFrames_ = taps_.frames();
    session_.setStatus(std::move(status));
}

Json PipelineView::hello() const
{
    const std::lock_guard lock(mutex_);
    Json steps = Json::array();
    for (std::size_t i = 0; i < original_.steps.size(); ++i) steps.push_back(stepJson(original_, i));
    return {{"mode", "pipeline"}, {"steps", std::move(steps)}, {"canTune", tuner_.canTune()}};
}

void PipelineView::set(const SetSetting& wanted)
{
    const std::lock_guard lock(mutex_);
    if (wanted.step >= original_.steps.size()) throw std::runtime_error("there is no such step");
    const StepInfo& info = *original_.steps[wanted.step].info;
    const SettingInfo* setting = findSetting(info, wanted.path);
    if (setting == nullptr)
        throw std::runtime_error(fmt::format("{} has no setting {}", info.kind, wanted.path));
    if (!isTunable(info, *setting))
        throw std::runtime_error(fmt::format("{} cannot be changed from the page", wanted.path));
    std::string value = wanted.value.value_or("");
    if (!wanted.value) {
        const Json before = settingValue(original_, wanted.step, *setting);
        if (before.is_null()) throw std::runtime_error(fmt::format("{} had no value before", wanted.path));
        value = before.dump();
    }
    host::Pipeline trial = tunedPipeline_;
    host::applySet(trial, wanted.step, wanted.path + "=" + value);
    host::checkSettings(trial);
    tunedPipeline_ = std::move(trial);
    const std::pair key(wanted.step, wanted.path);
    if (settingValue(tunedPipeline_, wanted.step, *setting) == settingValue(original_, wanted.step, *setting))
        changed_.erase(key);
    else
        changed_.insert(key);
    wantsTune_ = true;
    ordered_.notify_one();
}

Json PipelineView::act(const Action& action)
{
    using What = Action::What;
    const std::lock_guard lock(mutex_);
    switch (action.what) {
        case What::Run:
            paused_ = false;
            break;
        case What::Pause:
            paused_ = true;
            break;
        case What::Step:
            paused_ = true;
            ++steps_;
            break;
        case What::Apply:
            wantsApply_ = true;
            break;
        case What::Discard:
            for (std::size_t i = 0; i < original_.steps.size(); ++i)
                tunedPipeline_.steps[i].settings = Struct(original_.steps[i].settings);
            changed_.clear();
            wantsHold_ = wantsStatus_ = true;
            session_.stage().clearTuned();
            break;
        case What::Hold:
            wantsHold_ = wantsTune_ = true;
            break;
        case What::Export:
            return {{"json", host::pipelineJson(tunedPipeline_)},
                    {"command", "scansteps run " + host::pipelineArguments(tunedPipeline_)}};
        default:
            throw std::runtime_error("a pipeline cannot do that");
    }
    ordered_.notify_one();
    return Json::object();
}

void PipelineView::watched(bool isWatched)
{
    if (!isWatched) return;
    const std::lock_guard lock(mutex_);
    wantsStatus_ = true;
    ordered_.notify_one();
}

}  // namespace scansteps::viewer
