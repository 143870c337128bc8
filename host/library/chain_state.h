// The inside of a Chain: the linked steps and what stands between them.
#pragma once

#include <atomic>
#include <exception>
#include <new>

#include "notices.h"
#include "replay.h"
#include "scansteps/host.h"

namespace scansteps::host {

/// Null for the record printer, the only class of the library that does not derive from StepBase.
StepBase* asStepBase(const PipelineStep& step, cChain& made);

/// The type of an event, 0 when it has none.
int typeOf(const varitype& params);

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

    // Keeps the initialise event that a step forwards.
    class Catcher final : public cChain
    {
      public:
        void dispatch(varitype& params) override { caught = params.clone(); }
        varitype caught{Struct()};
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
    void mergeStep(std::size_t step, varitype& record);
    void tellDropped() const;
    void noteMismatch(std::size_t step);
    void makeInput(const Struct& initRecord);
    StepError error(ExitCode code, std::size_t step, const std::string& message);
    StepError errorOf(const char* text);
    /// Sends one event; what a step throws becomes a StepError of the step that was working.
    template <class Work>
    void guarded(Phase which, Work work);
    void rejectMismatch(const char* text);
    void send(varitype& record);
    void update();
    Struct settingsOf(std::size_t step, const varitype& init) const;
    varitype initialiseAlone(std::size_t step, const varitype& init);
    bool process(varitype& record, bool cleared);

    Pipeline pipeline;
    const StepLibrary& library;
    Hooks hooks;
    HandleTable table;
    std::vector<std::unique_ptr<cChain>> steps;
    std::vector<std::unique_ptr<Probe>> probes;
    std::unique_ptr<End> end;
    TextureSet input;
    std::atomic<std::size_t> current = 0;  // the working step
    std::vector<std::int64_t> processed;   // process events that each step, and the end, was given
    std::vector<varitype>
        arrived;  // the last initialise event for each step, before its settings were merged
    std::vector<varitype> initialised;  // and with them
    NoticeBoard notices;
    ReplayRules replay;
    Phase phase = Phase::Initialise;
    std::int64_t frame = 0;
    bool mismatch = false;
    std::size_t mismatchAt = 0;
    varitype flushRecord{Struct{{"eventType", event::kFlush}}};  // made while there is memory for it
    std::optional<varitype>* passed = nullptr;  // where transform() wants what reaches the end
};

template <class Work>
void Chain::State::guarded(Phase which, Work work)
{
    phase = which;
    current = 0;
    mismatch = false;
    notices.takeFailedFile();  // left by an error that was not raised after all
    install();
    try {
        work();
    } catch (const char* text) {
        throw errorOf(text);
    } catch (const std::bad_alloc&) {
        throw errorOf("out of memory");
    } catch (const std::exception& thrown) {
        throw errorOf(thrown.what());
    }
}

}  // namespace scansteps::host
