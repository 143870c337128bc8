// The operations of a Chain.
#include <utility>

#include "chain_state.h"

namespace scansteps::host {

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

void Chain::update()
{
    state_->guarded(Phase::Initialise, [&] { state_->update(); });
    state_->rejectMismatch("the format of the frames does not fit (1004)");
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
    state_->tellDropped();
}

TextureSet& Chain::input()
{
    state_->install();
    return state_->input;
}

std::vector<StepFacts> Chain::steps() const
{
    std::vector<StepFacts> result;
    for (std::size_t i = 0; i < state_->steps.size(); ++i) {
        const PipelineStep& step = state_->pipeline.steps[i];
        StepFacts facts{step.info->kind, step.info->className, step.name, std::nullopt,
                        double(state_->notices.workerTime(i)) * 1e-6};
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
