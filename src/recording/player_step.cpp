// Opens a recording, and turns its records into events.
#include "recording/player_step.h"

#include <utility>

#include "core/frame_in_record.h"
#include "scansteps/frame.h"

namespace scansteps::recording {

namespace {

// Merges `from` into `into`. Entries of `from` take precedence; structs are merged recursively.
void merge(varitype& into, const varitype& from)
{
    for (const auto& [name, value] : from.as<Struct>()) {
        const bool bothStructs = value.kind() == Kind::Struct && value.hasPayload() && into.has(name) &&
                                 into[name].kind() == Kind::Struct && into[name].hasPayload();
        if (bothStructs) {
            varitype nested = into[name];
            merge(nested, value);
        } else
            into.set(name, value);
    }
}

}  // namespace

void RecordingPlayer::start(const Settings& settings, varitype& params)
{
    recording_.open(settings.text("load.name"), settings);
    if (!recording_.isOpen()) recording_.refuse("read error");
    varitype working = copyRecord(params);
    merge(working, recording_.next());
    working.set("eventType", event::kInit);
    createFrameBuffer(*this, working, out_);
    forward(*this, working);
}

void RecordingPlayer::process(varitype& params)
{
    StepTimer timer(*this);
    // The previous frame is no longer needed: the next one is read into its memory, or a later one if it was
    // read ahead.
    varitype record = nextEvent(out_.count() != 0 ? &out_.pixels() : nullptr);
    const int recorded = eventType(record);
    if (recorded == event::kFlush) {
        params.set("eventType", event::kFlush);  // tells the host that the recording has ended
        return;
    }
    Array spare;
    if (recorded == event::kProcess) spare = moveFrame(record);
    recording_.readAhead(std::move(spare));
    if (recorded == event::kProcess) timer.stop();
    forward(*this, record);
}

// Moves "data" into the buffer of the step. Returns what was there before.
Array RecordingPlayer::moveFrame(varitype& record)
{
    varitype data = record["data"];
    Array& frame = data.getv<Array>();
    checkEmbeddedFrame(*this, frame);
    std::swap(out_.pixels(), frame);
    record.remove("data");
    record.set("handle", out_.handle());
    return std::move(frame);
}

void RecordingPlayer::flush(varitype& params)
{
    recording_.finishRun(getName());
    CPUBase::flush(params);
}

}  // namespace scansteps::recording
