// A chain of steps: makes and links them, merges each step's settings into initialise events just before it,
// and turns what steps throw into StepError.
#include <atomic>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include "notices.h"
#include "replay.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

// The type of an event, 0 when it has none.
int typeOf(const varitype& params)
{
    if (!params.has("eventType")) return 0;
    const varitype type = params["eventType"];
    return type.kind() == Kind::Int ? type.as<std::int32_t>() : 0;
}

// Null for the record printer, the one class of the library that is no StepBase.
StepBase* asStepBase(const PipelineStep& step, cChain& made)
{
    if (step.create) return dynamic_cast<StepBase*>(&made);
    return std::string_view(step.info->kind) == "test" ? nullptr : &static_cast<StepBase&>(made);
}

}  // namespace

struct Chain::State
{
    // Stands before every step: notes which step works, and merges that step's settings.
    class Probe final : public cChain
    {
      public:
        Probe(State& state, std::size_t index) : state_(state), index_(index) {}
        void dispatch(varitype& params) override;

      private:
        State& state_;
        std::size_t index_;
    };

    // Stands after the last step and sees what reaches the end.
    class End final : public cChain
    {
      public:
        explicit End(State& state) : state_(state) {}
        void dispatch(varitype& params) override;

      private:
        State& state_;
    };

    State(Pipeline pipelineToRun, const StepLibrary& stepLibrary, Hooks hooksToCall);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void install();
    void link();
    void noteMismatch(std::size_t step);
    void makeInput(const Struct& initRecord);
    StepError error(ExitCode code, std::size_t step, const std::string& message) const;
    StepError errorOf(const char* text);
    template <class Send>
    void guarded(Phase which, Send send);
    void rejectMismatch(const char* text);
    void send(varitype& record);
    bool process(varitype& record, bool cleared);

    Pipeline pipeline;
    const StepLibrary& library;
    Hooks hooks;
    HandleTable table;
    std::vector<std::unique_ptr<cChain>> steps;
    std::vector<std::unique_ptr<Probe>> probes;
    std::unique_ptr<End> end;
    TextureSet input;
    std::atomic<std::size_t> current = 0;  // the step that works now
    std::vector<std::int64_t> processed;   // process events that each step was given
    NoticeBoard notices;
    ReplayRules replay;
    Phase phase = Phase::Initialise;
    std::int64_t frame = 0;
    bool mismatch = false;
    std::size_t mismatchAt = 0;
    varitype flushRecord{Struct{{"eventType", event::kFlush}}};  // made while there is memory for it
    std::optional<varitype>* passed = nullptr;  // where transform() wants what reaches the end
};

void Chain::State::Probe::dispatch(varitype& params)
{
    const std::size_t before = state_.current.exchange(index_);
    // A 1004 that comes in was reported by the step before: the first one is the culprit.
    const int type = typeOf(params);
    if (type == event::kInit) {
        if (index_ > 0 && state_.pipeline.steps[index_ - 1].info->player)
            state_.replay.apply(index_ - 1, params);
        mergeSettings(params, state_.pipeline.steps[index_].settings);
    }
    if (type == event::kProcess) ++state_.processed[index_];
    if (type == event::kMismatch) state_.noteMismatch(before);
    if (state_.hooks.observe) state_.hooks.observe(index_, params);
    next->dispatch(params);
    state_.current = before;  // not reached by an error: the step that raised it stays noted
}

void Chain::State::End::dispatch(varitype& params)
{
    const int type = typeOf(params);
    if (type == event::kMismatch) state_.noteMismatch(state_.current);
    if (type == event::kProcess && state_.passed != nullptr) *state_.passed = params;
    if (state_.hooks.observe) state_.hooks.observe(state_.steps.size(), params);
}

Chain::State::State(Pipeline pipelineToRun, const StepLibrary& stepLibrary, Hooks hooksToCall)
    : pipeline(std::move(pipelineToRun)),
      library(stepLibrary),
      hooks(std::move(hooksToCall)),
      processed(pipeline.steps.size()),
      notices(pipeline, table, current, hooks),
      replay(pipeline, [this](const std::string& text) {
          if (hooks.onWarning) hooks.onWarning(text);
      })
{
    fillFreeHandles(table);
    install();
    for (const PipelineStep& step : pipeline.steps) {
        steps.push_back(step.create ? step.create() : library.create(step.info->kind));
        StepBase* const base = asStepBase(step, *steps.back());
        if (base != nullptr && !step.name.empty()) base->name = step.name;
    }
    link();
}

Chain::State::~State()
{
    install();
    input.reset();
    steps.clear();  // the steps free their buffers in the table
    for (SlotRecord* slot : table.slots) delete slot;
    installHandles(nullptr);
}

// Steps work on the table that is installed in their module.
void Chain::State::install()
{
    if (installedHandles() == &table) return;
    installHandles(&table);
    library.setHandles(&table);
}

void Chain::State::link()
{
    end = std::make_unique<End>(*this);
    for (std::size_t i = 0; i < steps.size(); ++i) probes.push_back(std::make_unique<Probe>(*this, i));
    for (std::size_t i = 0; i < steps.size(); ++i) {
        probes[i]->setNext(steps[i].get());
        if (i + 1 < steps.size())
            steps[i]->setNext(probes[i + 1].get());
        else
            steps[i]->setNext(end.get());
    }
}

void Chain::State::noteMismatch(std::size_t step)
{
    if (!mismatch) mismatchAt = step;
    mismatch = true;
}

StepError Chain::State::error(ExitCode code, std::size_t step, const std::string& message) const
{
    StepError result(code, step, message);
    result.kind = pipeline.steps[step].info->kind;
    result.name = pipeline.steps[step].name;
    result.phase = phase;
    result.frame = phase == Phase::Process ? frame : 0;
    return result;
}

StepError Chain::State::errorOf(const char* text)
{
    std::string message = text;
    const bool gaveUp = message == "interrupted" && hooks.interrupted && hooks.interrupted();
    while (!message.empty() && message.back() == '\n') message.pop_back();
    for (char& c : message)
        if (c == '\n') c = ' ';
    FileReason file = notices.takeFailedFile();
    if (const std::string details = file.text(); !details.empty() && message.find(details) == message.npos)
        message += ": " + details;
    if (message == "[data] already found")
        message +=
            " (the frame is there twice, in the record and under a handle: put cstrip before this step)";
    StepError result = error(kStepFailed, current, message);
    result.file = std::move(file);
    result.gaveUp = gaveUp;
    return result;
}

// Runs one event; what is thrown becomes an error of the step that worked.
template <class Send>
void Chain::State::guarded(Phase which, Send send)
{
    phase = which;
    current = 0;
    mismatch = false;
    notices.takeFailedFile();  // of an error that did not come
    install();
    try {
        send();
    } catch (const char* text) {
        throw errorOf(text);
    } catch (const std::bad_alloc&) {
        throw errorOf("out of memory");
    } catch (const std::exception& thrown) {
        throw errorOf(thrown.what());
    }
}

void Chain::State::rejectMismatch(const char* text)
{
    if (mismatch) throw error(kMisfit, mismatchAt, text);
}

void Chain::State::send(varitype& record)
{
    probes[0]->dispatch(record);
    if (eventType(record) == event::kMismatch) noteMismatch(0);
}

// The host's own frame, for chains that do not begin with a source.
void Chain::State::makeInput(const Struct& initRecord)
{
    if (pipeline.steps[0].info->source) return;
    const auto integer = [&](const char* name) {
        const varitype* value = initRecord.find(name);
        return value != nullptr && value->kind() == Kind::Int ? value->as<std::int32_t>() : -1;
    };
    const varitype* format = initRecord.find("dataFormat");
    if (format == nullptr || format->kind() != Kind::String) return;
    const std::uint32_t code = formatCode(format->as<std::string>());
    if (code == 0 || integer("dataX") < 0 || integer("dataY") < 0) return;
    checkFrameSize(integer("dataX"), integer("dataY"));
    input.create(integer("dataX"), integer("dataY"), code,
                 chainFrameShape(code, std::uint32_t(integer("dataX")), std::uint32_t(integer("dataY"))));
}

bool Chain::State::process(varitype& record, bool cleared)
{
    bool ended = false;
    ++frame;
    guarded(Phase::Process, [&] {
        record.set("eventType", event::kProcess);
        if (input.count() != 0 && !record.has("handle")) {
            if (cleared) input.writable().clear();
            record.insert("handle", input.handle());
        }
        send(record);
        ended = eventType(record) == event::kFlush;
    });
    rejectMismatch("a format mismatch (1004) came through the chain");
    return !ended;
}

Chain::Chain(Pipeline pipeline, const StepLibrary& library, Hooks hooks)
    : state_(std::make_unique<State>(std::move(pipeline), library, std::move(hooks)))
{
}

Chain::~Chain() = default;

Pipeline& Chain::pipeline()
{
    return state_->pipeline;
}

const Pipeline& Chain::pipeline() const
{
    return state_->pipeline;
}

void Chain::initialise()
{
    State& state = *state_;
    state.frame = 0;
    state.flushRecord = varitype(Struct{{"eventType", event::kFlush}});
    varitype record{Struct(state.pipeline.settings)};
    mergeSettings(record, state.pipeline.sets);
    record.set("eventType", event::kInit);
    state.guarded(Phase::Initialise, [&] {
        state.input.reset();
        varitype firstSees{Struct(record.as<Struct>())};
        mergeSettings(firstSees, state.pipeline.steps[0].settings);
        state.makeInput(firstSees.as<Struct>());
        state.send(record);
    });
    state.rejectMismatch(
        "the format of the frames does not fit (1004): \"dataFormat\" is missing or another one");
}

bool Chain::process()
{
    varitype record{Struct()};
    return state_->process(record, true);
}

bool Chain::process(varitype& record)
{
    return state_->process(record, false);
}

std::optional<varitype> Chain::transform(varitype& record)
{
    std::optional<varitype> result;
    state_->passed = &result;
    try {
        process(record);
    } catch (...) {
        state_->passed = nullptr;
        throw;
    }
    state_->passed = nullptr;
    return result;
}

void Chain::flush()
{
    state_->guarded(Phase::Flush, [&] { state_->probes[0]->dispatch(state_->flushRecord); });
}

TextureSet& Chain::input()
{
    return state_->input;
}

std::vector<StepFacts> Chain::steps() const
{
    std::vector<StepFacts> result;
    for (std::size_t i = 0; i < state_->steps.size(); ++i) {
        const PipelineStep& step = state_->pipeline.steps[i];
        StepFacts facts{step.info->kind, step.info->className, step.name, std::nullopt};
        if (const StepBase* base = asStepBase(step, *state_->steps[i]))
            facts.seconds = double(base->time) * 1e-6;
        result.push_back(std::move(facts));
    }
    return result;
}

std::vector<TroubleFacts> Chain::troubles() const
{
    std::vector<TroubleFacts> result = state_->notices.troubles();
    for (TroubleFacts& trouble : result) trouble.tried = state_->processed[trouble.step];
    return result;
}

bool Chain::interrupted() const
{
    return state_->hooks.interrupted && state_->hooks.interrupted();
}

}  // namespace scansteps::host
