// Makes and links the steps of a chain, merges each step's settings into initialise events just before it,
// and turns what steps throw into StepError.
#include "chain_state.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

#include "plugins.h"
#include "values.h"

namespace scansteps::host {

int typeOf(const varitype& params)
{
    if (!params.has("eventType")) return 0;
    const varitype type = params["eventType"];
    return type.kind() == Kind::Int ? type.as<std::int32_t>() : 0;
}

StepBase* asStepBase(const PipelineStep& step, cChain& made)
{
    if (step.create || pluginOf(step.info->kind) != nullptr) return dynamic_cast<StepBase*>(&made);
    return std::string_view(step.info->kind) == "test" ? nullptr : &static_cast<StepBase&>(made);
}

void Chain::State::Probe::dispatch(varitype& params)
{
    const std::size_t before = state_.current.exchange(index_);
    // An incoming 1004 was reported by the step before; the first report counts.
    const int type = typeOf(params);
    if (type == event::kInit) {
        if (index_ > 0 && state_.pipeline.steps[index_ - 1].info->player)
            state_.replay.apply(index_ - 1, params);
        state_.arrived[index_] = params.clone();
        state_.mergeStep(index_, params);
        state_.initialised[index_] = params.clone();
    }
    if (type == event::kProcess) ++state_.processed[index_];
    if (type == event::kMismatch) state_.noteMismatch(before);
    if (state_.hooks.observe) state_.hooks.observe(index_, params);
    next->dispatch(params);
    state_.current = before;  // skipped by an exception, so that the step that threw stays noted
}

void Chain::State::End::dispatch(varitype& params)
{
    const int type = typeOf(params);
    if (type == event::kMismatch) state_.noteMismatch(state_.current);
    if (type == event::kProcess) ++state_.processed.back();
    if (type == event::kProcess && state_.passed != nullptr) *state_.passed = params;
    if (state_.hooks.observe) state_.hooks.observe(state_.steps.size(), params);
}

Chain::State::State(Pipeline pipelineToRun, const StepLibrary& stepLibrary, Hooks hooksToCall)
    : pipeline(std::move(pipelineToRun)),
      library(stepLibrary),
      hooks(std::move(hooksToCall)),
      processed(pipeline.steps.size() + 1),
      arrived(pipeline.steps.size(), varitype(Struct())),
      initialised(pipeline.steps.size(), varitype(Struct())),
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
    std::size_t left = 0;
    for (SlotRecord* slot : table.slots) {
        left += slot != nullptr ? 1 : 0;
        delete slot;
    }
    installHandles(nullptr);
    if (left == 0 || !hooks.onWarning) return;
    try {
        hooks.onWarning(
            fmt::format("the steps left {} {} allocated", left, left == 1 ? "handle" : "handles"));
    } catch (...) {  // no memory for the warning
    }
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

void Chain::State::mergeStep(std::size_t step, varitype& record)
{
    const Struct& settings = pipeline.steps[step].settings;
    mergeSettings(record, settings);
    if (hooks.onInfo && settings.size() != 0)
        hooks.onInfo(
            fmt::format("{}: settings merged: {}", stepLabel(pipeline, step), lineOf(Struct(settings))));
}

// Fewer frames than events are no news of sources: they make the frames.
void Chain::State::tellDropped() const
{
    for (std::size_t i = 0; hooks.onInfo && i < steps.size(); ++i) {
        if (const std::int64_t skipped = notices.skipped(i); skipped != 0)
            hooks.onInfo(fmt::format("{}: {} {} without \"eventType\" skipped", stepLabel(pipeline, i),
                                     skipped, skipped == 1 ? "record" : "records"));
        if (processed[i + 1] < processed[i] && !pipeline.steps[i].info->source)
            hooks.onInfo(fmt::format("{}: {} of {} records of frames passed on", stepLabel(pipeline, i),
                                     processed[i + 1], processed[i]));
    }
}

void Chain::State::noteMismatch(std::size_t step)
{
    if (!mismatch) mismatchAt = step;
    mismatch = true;
}

StepError Chain::State::error(ExitCode code, std::size_t step, const std::string& message)
{
    notices.noteStepFailed();
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

void Chain::State::rejectMismatch(const char* text)
{
    if (mismatch) throw error(kMisfit, mismatchAt, text);
}

void Chain::State::send(varitype& record)
{
    probes[0]->dispatch(record);
    if (eventType(record) == event::kMismatch) noteMismatch(0);
}

// The caller's frame, for chains that do not begin with a source.
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

}  // namespace scansteps::host
