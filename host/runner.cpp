#include "runner.h"

#include <fmt/format.h>

#include <chrono>
#include <exception>

#include "standard_streams.h"

namespace scansteps::host {

// Stands before every step: notes which step works, and merges that step's settings into initialise events.
class Runner::Probe final : public cChain
{
  public:
    Probe(Runner& runner, std::size_t index) : runner_(runner), index_(index) {}
    void dispatch(varitype& params) override
    {
        const std::size_t before = runner_.current_.exchange(index_);
        const Struct& settings = runner_.pipeline_.steps[index_].settings;
        // A 1004 that comes in was reported by the step before: the first one is the culprit.
        if (params.has("eventType") && params["eventType"].kind() == Kind::Int) {
            const int type = params["eventType"].as<std::int32_t>();
            if (type == event::kInit) {
                if (index_ > 0 && runner_.pipeline_.steps[index_ - 1].kind->player)
                    runner_.replay_.apply(index_ - 1, params);
                mergeSettings(params, settings);
            }
            if (type == event::kProcess) ++runner_.processed_[index_];
            if (type == event::kMismatch) runner_.noteMismatch(before);
        }
        next->dispatch(params);
        runner_.current_ = before;  // not reached by an error: the step that raised it stays noted
    }

  private:
    Runner& runner_;
    std::size_t index_;
};

// Stands behind the last step and sees what reaches the end.
class Runner::End final : public cChain
{
  public:
    explicit End(Runner& runner) : runner_(runner) {}
    void dispatch(varitype& params) override
    {
        if (params.has("eventType") && params["eventType"].kind() == Kind::Int &&
            params["eventType"].as<std::int32_t>() == event::kMismatch)
            runner_.noteMismatch(runner_.current_);
    }

  private:
    Runner& runner_;
};

Runner::Runner(const Pipeline& pipeline, const StepLibrary& library)
    : pipeline_(pipeline),
      processed_(pipeline.steps.size()),
      notices_(pipeline, table_, current_),
      replay_(pipeline, [this](const std::string& text) {
          if (onWarning) onWarning(text);
      })
{
    fillFreeHandles(table_);
    installHandles(&table_);
    library.setHandles(&table_);
    for (const PipelineStep& step : pipeline.steps) {
        steps_.push_back(library.create(step.kind->kind));
        // Every class but the record printer is a StepBase.
        if (!step.name.empty() && std::string_view(step.kind->kind) != "test")
            static_cast<StepBase&>(*steps_.back()).name = step.name;
    }
    link();
}

Runner::~Runner()
{
    hostBuffer_.reset();
    steps_.clear();  // the steps free their buffers in the table
    for (SlotRecord* slot : table_.slots) delete slot;
    installHandles(nullptr);
}

void Runner::link()
{
    end_ = std::make_unique<End>(*this);
    for (std::size_t i = 0; i < steps_.size(); ++i) probes_.push_back(std::make_unique<Probe>(*this, i));
    for (std::size_t i = 0; i < steps_.size(); ++i) {
        probes_[i]->setNext(steps_[i].get());
        if (i + 1 < steps_.size())
            steps_[i]->setNext(probes_[i + 1].get());
        else
            steps_[i]->setNext(end_.get());
    }
}

void Runner::noteMismatch(std::size_t step)
{
    if (!mismatch_) mismatchAt_ = step;
    mismatch_ = true;
}

void Runner::noteOutOfMemory() noexcept
{
    facts_.outOfMemory = true;
    if (facts_.exitCode == kEnded) facts_.exitCode = kStepFailed;
}

void Runner::addError(const std::string& phase, const char* text) noexcept
try {
    std::string message = text;
    const bool gaveUp = interrupted() && facts_.exitCode == kEnded;
    if (gaveUp) facts_.exitCode = kInterrupted;
    if (gaveUp && message == "interrupted") return;
    while (!message.empty() && message.back() == '\n') message.pop_back();
    for (char& c : message)
        if (c == '\n') c = ' ';
    const FileReason file = notices_.takeFailedFile();
    if (const std::string details = file.text(); !details.empty() && message.find(details) == message.npos)
        message += ": " + details;
    if (message == "[data] already found")
        message +=
            " (the frame is there twice, in the record and under a handle: put cstrip before this step)";
    facts_.errors.push_back({stepLabel(pipeline_, current_), phase, std::move(message), file});
    if (facts_.exitCode == kEnded) facts_.exitCode = kStepFailed;
} catch (...) {
    noteOutOfMemory();
}

// Runs one dispatch; what is thrown becomes an error of the step that worked.
template <class Send>
bool Runner::guarded(const std::string& phase, Send send)
{
    current_ = 0;
    notices_.takeFailedFile();  // of an error that did not come
    try {
        send();
        return true;
    } catch (const char* text) {
        addError(phase, text);
    } catch (const std::bad_alloc&) {
        addError(phase, "out of memory");
    } catch (const std::exception& error) {
        addError(phase, error.what());
    }
    return false;
}

// The host's own frame, for chains that do not begin with a source.
void Runner::makeHostBuffer(const Struct& initRecord)
{
    if (pipeline_.steps[0].kind->source) return;
    const auto integer = [&](const char* name) {
        const varitype* value = initRecord.find(name);
        return value != nullptr && value->kind() == Kind::Int ? value->as<std::int32_t>() : -1;
    };
    const varitype* format = initRecord.find("dataFormat");
    if (format == nullptr || format->kind() != Kind::String) return;
    const std::uint32_t code = formatCode(format->as<std::string>());
    if (code == 0 || integer("dataX") < 0 || integer("dataY") < 0) return;
    checkFrameSize(integer("dataX"), integer("dataY"));
    hostBuffer_.create(
        integer("dataX"), integer("dataY"), code,
        chainFrameShape(code, std::uint32_t(integer("dataX")), std::uint32_t(integer("dataY"))));
}

bool Runner::initialise()
{
    varitype record{Struct(pipeline_.settings)};
    mergeSettings(record, pipeline_.sets);
    record.set("eventType", event::kInit);
    const bool sent = guarded("initialise", [&] {
        varitype firstSees{Struct(record.as<Struct>())};
        mergeSettings(firstSees, pipeline_.steps[0].settings);
        makeHostBuffer(firstSees.as<Struct>());
        probes_[0]->dispatch(record);
        if (eventType(record) == event::kMismatch) noteMismatch(0);
    });
    if (sent && mismatch_) {
        facts_.exitCode = kMisfit;
        facts_.errors.push_back(
            {stepLabel(pipeline_, mismatchAt_), "initialise",
             "the format of the frames does not fit (1004): \"dataFormat\" is missing or another one"});
    }
    return facts_.exitCode == kEnded;
}

void Runner::processFrames()
{
    for (std::int64_t frame = 1; pipeline_.frames == 0 || frame <= pipeline_.frames; ++frame) {
        if (interrupted()) {
            facts_.exitCode = kInterrupted;
            return;
        }
        if (standardOutputIsDeserted()) {
            facts_.outputDeserted = true;
            return;
        }
        const std::string phase = fmt::format("frame {}", frame);
        varitype record{Struct{{"eventType", event::kProcess}}};
        bool ended = false;
        const bool sent = guarded(phase, [&] {
            if (hostBuffer_.count() != 0) {
                hostBuffer_.writable().clear();
                record.insert("handle", hostBuffer_.handle());
            }
            probes_[0]->dispatch(record);
            ended = eventType(record) == event::kFlush;
            if (eventType(record) == event::kMismatch) noteMismatch(0);
        });
        if (!sent) return;
        if (mismatch_) {
            facts_.exitCode = kMisfit;
            facts_.errors.push_back({stepLabel(pipeline_, mismatchAt_), phase,
                                     "a format mismatch (1004) came through the chain"});
            return;
        }
        if (ended) return;
        facts_.frames = frame;
        if (onFrame) onFrame(frame);
    }
}

RunFacts Runner::run()
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    varitype flush{Struct{{"eventType", event::kFlush}}};  // while there is memory for it
    try {
        if (initialise()) processFrames();
    } catch (const std::exception&) {
        noteOutOfMemory();
    }
    guarded("flush", [&] { probes_[0]->dispatch(flush); });
    if (facts_.exitCode == kEnded && interrupted()) facts_.exitCode = kInterrupted;
    facts_.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    for (std::size_t i = 0; i < steps_.size(); ++i) {
        const PipelineStep& step = pipeline_.steps[i];
        StepFacts facts{step.kind->kind, step.kind->className, step.name, std::nullopt};
        if (std::string_view(step.kind->kind) != "test")
            facts.seconds = double(static_cast<StepBase&>(*steps_[i]).time) * 1e-6;
        facts_.steps.push_back(std::move(facts));
    }
    facts_.troubles = notices_.troubles();
    for (TroubleFacts& trouble : facts_.troubles) trouble.tried = processed_[trouble.step];
    return std::move(facts_);
}

}  // namespace scansteps::host
